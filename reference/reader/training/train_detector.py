#!/usr/bin/env python3
"""train_detector.py OUT.onnx --minutes M [--seed S] [--from OUT.onnx.weights]

Trains the network that finds rows of plate characters, on scenes drawn during the training. Input: (grey - 128) / 64.
Output: for each square of 8 pixels a score and five numbers about the row (scene_drawing.py).
"""
import random
import time

import numpy as np
import torch
import torch.nn as nn
import torch.nn.functional as functional

import plate_drawing
import scene_drawing
import training
from examples import Examples


def convolution(inputs, outputs, stride=1, dilation=1):
    return nn.Sequential(
        nn.Conv2d(inputs, outputs, 3, stride=stride, padding=dilation, dilation=dilation, bias=False),
        nn.BatchNorm2d(outputs),
        nn.ReLU(),
    )


class Detector(nn.Module):
    def __init__(self):
        super().__init__()
        self.layers = nn.Sequential(
            convolution(1, 8, 2),
            convolution(8, 16, 2),
            convolution(16, 24),
            convolution(24, 40, 2),
            convolution(40, 32),
            convolution(32, 32, dilation=2),
            convolution(32, 32, dilation=4),
            convolution(32, 32, dilation=6),
            convolution(32, 32),
            nn.Conv2d(32, 6, 1),
        )

    def forward(self, scenes):
        return self.layers(scenes)


def drawer():
    fonts, photographs = plate_drawing.load_fonts(), plate_drawing.load_photographs()
    return lambda: scene_drawing.draw_scene(fonts, photographs)


def main():
    arguments = training.parse_arguments(__doc__)
    network, average = training.prepare(Detector(), arguments)
    examples = Examples(drawer, arguments.seed, batch=24, fresh=10, buffer_size=6000)
    optimiser = torch.optim.AdamW(network.parameters(), lr=arguments.rate, weight_decay=1e-3)
    schedule = training.Schedule(optimiser, arguments.minutes, arguments.rate, warmup=100)
    example = torch.randn(1, 1, scene_drawing.HEIGHT, scene_drawing.WIDTH)
    axes = {2: "rows", 3: "columns"}
    export = {"dynamic_axes": {"picture": axes, "scores": axes}}
    counts = np.zeros(3)  # cells found that are right, cells found, cells to be found
    started = time.monotonic()

    while schedule.progress() < 1:
        schedule.step()
        batch = examples.next_batch()
        scenes = torch.from_numpy(np.stack([scene for scene, _, _ in batch])[:, None].astype(np.float32))
        if random.random() < 0.3:
            scenes = 255 - scenes
        truth = torch.from_numpy(np.stack([found for _, found, _ in batch]))
        numbers = torch.from_numpy(np.stack([about for _, _, about in batch]))
        scenes = ((scenes - 128) / 64).contiguous(memory_format=torch.channels_last)
        with torch.autocast("cpu", dtype=torch.bfloat16):
            outputs = network(scenes)
        outputs = outputs.float()
        on, away = (truth > 0.5).float(), (truth == 0).float()
        # Weighted by the error of a cell (focal loss, Lin et al. 2017), so that the many empty cells do not dominate.
        chance = torch.sigmoid(outputs[:, 0])
        wrong = (on * (1 - chance) ** 2 + away * chance**2).detach()
        unlikely = functional.binary_cross_entropy_with_logits(outputs[:, 0], on, reduction="none")
        cells = on.sum().clamp(min=20)
        score_loss = (unlikely * wrong * (on * 2 + away)).sum() / cells
        number_loss = (functional.smooth_l1_loss(outputs[:, 1:], numbers, reduction="none") * on[:, None]).sum() / cells
        optimiser.zero_grad()
        (score_loss * 4 + number_loss).backward()
        nn.utils.clip_grad_norm_(network.parameters(), 5.0)
        optimiser.step()
        average.add(network)

        found = (chance.detach() > 0.5).float()
        counts += [float((found * on).sum()), float((found * (on + away)).sum()), float(on.sum())]
        if schedule.steps % 200 == 0:
            pace = (time.monotonic() - started) / schedule.steps * 1000
            print(
                f"step {schedule.steps} of time {schedule.progress():.3f} score {score_loss.item():.4f} "
                f"numbers {number_loss.item():.4f} found {counts[0] / counts[2]:.3f} right {counts[0] / counts[1]:.3f} "
                f"drawn {examples.drawn} {pace:.0f} ms a step",
                flush=True,
            )
            counts[:] = 0
        if schedule.steps % 1000 == 0:
            training.save(average, example, arguments.out, **export)
    training.save(average, example, arguments.out, **export)
    examples.stop()


if __name__ == "__main__":
    main()
