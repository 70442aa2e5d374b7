#!/usr/bin/env python3
"""train_detector.py OUT.onnx --minutes M [--seed S] [--from OUT.onnx.state]

Trains the network that finds rows of plate characters, on scenes drawn during the training. Input: (grey - 128) / 64.
Output: for each square of 16 pixels, 24 numbers: a score and five numbers about the row (scene_drawing.py), each for the
four squares of 8 pixels in it.
"""
import random

import numpy as np
import torch
import torch.nn as nn
import torch.nn.functional as functional

import plate_drawing
import scene_drawing
import training
from examples import Examples


def convolution(inputs, outputs, stride=1):
    return [
        nn.Conv2d(inputs, outputs, 3, stride=stride, padding=1, bias=False), nn.BatchNorm2d(outputs), nn.ReLU()
    ]


def separable(inputs, outputs, stride=1):
    """A convolution of each channel by itself, then one across the channels (Howard et al. 2017): a fifth of the time."""
    return [
        nn.Conv2d(inputs, inputs, 3, stride=stride, padding=1, groups=inputs, bias=False),
        nn.BatchNorm2d(inputs),
        nn.ReLU(),
        nn.Conv2d(inputs, outputs, 1, bias=False),
        nn.BatchNorm2d(outputs),
    ]


class Residual(nn.Module):
    def __init__(self, width):
        super().__init__()
        self.change = nn.Sequential(*separable(width, width))

    def forward(self, picture):
        return functional.relu(picture + self.change(picture))


class Detector(nn.Module):
    """Most of its layers work on squares of 16 pixels, each layer sees the neighbours of a square: together 130 pixels."""

    def __init__(self):
        super().__init__()
        self.layers = nn.Sequential(
            *convolution(1, 8, 2),
            *convolution(8, 16, 2),
            *separable(16, 48, 2),
            nn.ReLU(),
            Residual(48),
            Residual(48),
            *separable(48, 96, 2),
            nn.ReLU(),
            *[Residual(96) for _ in range(7)],
            nn.Conv2d(96, 24, 1),
        )

    def forward(self, scenes):
        return self.layers(scenes)


def drawer():
    fonts, photographs = plate_drawing.load_fonts(), plate_drawing.load_photographs()
    return lambda: scene_drawing.draw_scene(fonts, photographs)


def main():
    arguments = training.parse_arguments(__doc__)
    run = training.Training(Detector(), arguments, decay=1e-3, warmup=100)
    examples = Examples(drawer, arguments.seed, batch=24, fresh=16, buffer_size=6000)
    example = torch.randn(1, 1, scene_drawing.HEIGHT, scene_drawing.WIDTH)
    axes = {2: "rows", 3: "columns"}
    counts = np.zeros(3)  # cells found that are right, cells found, cells to be found

    while run.progress() < 1:
        batch = examples.next_batch()
        scenes = torch.from_numpy(np.stack([scene for scene, _, _ in batch])[:, None].astype(np.float32))
        if random.random() < 0.3:
            scenes = 255 - scenes
        truth = torch.from_numpy(np.stack([found for _, found, _ in batch])).to(training.DEVICE)
        numbers = torch.from_numpy(np.stack([about for _, _, about in batch])).to(training.DEVICE)
        scenes = ((scenes.to(training.DEVICE) - 128) / 64).contiguous(memory_format=torch.channels_last)
        with torch.autocast(training.DEVICE.type, dtype=torch.bfloat16):
            outputs = run.network(scenes)
        outputs = functional.pixel_shuffle(outputs.float(), 2)
        on, away = (truth > 0.5).float(), (truth == 0).float()
        # Weighted by the error of a cell (focal loss, Lin et al. 2017), so that the many empty cells do not dominate.
        chance = torch.sigmoid(outputs[:, 0])
        wrong = (on * (1 - chance) ** 2 + away * chance**2).detach()
        unlikely = functional.binary_cross_entropy_with_logits(outputs[:, 0], on, reduction="none")
        cells = on.sum().clamp(min=20)
        score_loss = (unlikely * wrong * (on * 2 + away)).sum() / cells
        number_loss = (functional.smooth_l1_loss(outputs[:, 1:], numbers, reduction="none") * on[:, None]).sum() / cells
        run.learn(score_loss * 4 + number_loss)

        found = (chance.detach() > 0.5).float()
        counts += [float((found * on).sum()), float((found * (on + away)).sum()), float(on.sum())]
        if run.steps % 200 == 0:
            print(
                f"step {run.steps} of time {run.progress():.3f} score {score_loss.item():.4f} "
                f"numbers {number_loss.item():.4f} found {counts[0] / counts[2]:.3f} right {counts[0] / counts[1]:.3f} "
                f"drawn {examples.drawn} {run.pace()}",
                flush=True,
            )
            counts[:] = 0
        if run.steps % 1000 == 0:
            run.save(example, axes)
    run.save(example, axes)
    examples.stop()


if __name__ == "__main__":
    main()
