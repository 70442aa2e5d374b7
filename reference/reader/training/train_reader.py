#!/usr/bin/env python3
"""train_reader.py OUT.onnx --minutes M [--seed S] [--from OUT.onnx.state]

Trains the network that reads the text of a strip, on strips drawn during the training. Input: 1 x 32 x 160, grey, minus
its mean, divided by its deviation. Output: 37 scores (none, 0-9, A-Z) for each of 40 columns.
"""

import numpy as np
import torch
import torch.nn as nn
import torch.nn.functional as functional

import plate_drawing
import training
from examples import Examples

COLUMNS = 40
CLASSES = len(plate_drawing.CHARACTERS) + 1


def convolution(inputs, outputs, kernel, padding, **options):
    return nn.Sequential(
        nn.Conv2d(inputs, outputs, kernel, padding=padding, bias=False, **options), nn.BatchNorm2d(outputs), nn.ReLU()
    )


class Context(nn.Module):
    """Combines each column with others of its row."""

    def __init__(self, width, inner, dilation):
        super().__init__()
        self.change = nn.Sequential(
            convolution(width, inner, 1, 0),
            convolution(inner, inner, (1, 5), (0, 2 * dilation), dilation=(1, dilation)),
            nn.Conv2d(inner, width, 1, bias=False),
            nn.BatchNorm2d(width),
        )

    def forward(self, columns):
        return functional.relu(columns + self.change(columns))


class Reader(nn.Module):
    def __init__(self):
        super().__init__()
        self.look = nn.Sequential(
            convolution(1, 24, 5, 2, stride=2),
            convolution(24, 48, 3, 1),
            convolution(48, 72, 3, 1, stride=2),
            convolution(72, 72, 3, 1),
            convolution(72, 72, 3, 1),
            nn.MaxPool2d((2, 1)),
            convolution(72, 112, (4, 1), 0),
        )
        self.context = nn.Sequential(Context(112, 64, 1), Context(112, 64, 3), Context(112, 64, 6))
        self.drop = nn.Dropout(0.1)
        self.score = nn.Conv2d(112, CLASSES, 1)

    def forward(self, strips):
        return self.score(self.drop(self.context(self.look(strips))))


def normalise(strips):
    strips = strips.float()
    mean = strips.mean((2, 3), keepdim=True)
    return (strips - mean) / (strips.std((2, 3), keepdim=True, unbiased=False) + 4)


def column_labels(text, spans):
    """Returns the class of each column; -1 where two characters meet."""
    labels = np.zeros(COLUMNS, np.int64)
    unsure = np.zeros(COLUMNS, bool)
    for character, (first, last) in zip(text, spans / (plate_drawing.STRIP_WIDTH / COLUMNS)):
        width, middle = last - first, (first + last) / 2
        for column in range(max(0, int(np.floor(first))), min(COLUMNS, int(np.ceil(last)) + 1)):
            distance = abs(column + 0.5 - middle)
            if distance <= max(width * 0.28, 0.5):
                labels[column] = plate_drawing.CHARACTERS.index(character) + 1
                unsure[column] = False
            elif distance < width * 0.45 and labels[column] == 0:
                unsure[column] = True
    labels[unsure] = -1
    return labels


def drawer():
    fonts, photographs = plate_drawing.load_fonts(), plate_drawing.load_photographs()

    def draw():
        while True:
            strip, text, spans = plate_drawing.draw_strip(fonts, photographs)
            if len(spans) == len(text):
                return strip, text, column_labels(text, spans)

    return draw


def read(scores):
    """Returns the simplest decoding: the best class of each column, without repetitions and gaps."""
    texts = []
    for row in scores.argmax(1).numpy():
        text, before = "", 0
        for label in row:
            if label not in (before, 0):
                text += plate_drawing.CHARACTERS[label - 1]
            before = label
        texts.append(text)
    return texts


def main():
    arguments = training.parse_arguments(__doc__)
    run = training.Training(Reader(), arguments, decay=1e-2, warmup=200)
    examples = Examples(drawer, arguments.seed, batch=64, fresh=32, buffer_size=60000)
    aligned = nn.CTCLoss(zero_infinity=True)
    example = torch.randn(1, 1, plate_drawing.STRIP_HEIGHT, plate_drawing.STRIP_WIDTH)
    right = shown = 0

    while run.progress() < 1:
        batch = examples.next_batch()
        strips = torch.from_numpy(np.stack([strip for strip, _, _ in batch]))[:, None].to(training.DEVICE)
        labels = torch.from_numpy(np.stack([label for _, _, label in batch])).to(training.DEVICE)
        texts = [text for _, text, _ in batch]
        strips = normalise(strips).contiguous(memory_format=torch.channels_last)
        with torch.autocast(training.DEVICE.type, dtype=torch.bfloat16):
            scores = run.network(strips)
        scores = scores[:, :, 0, :].float()
        # First the class of each column; then the text as a whole, regardless of the characters' positions.
        early = run.is_fresh and run.progress() < 0.3
        loss = functional.cross_entropy(scores, labels, ignore_index=-1) * (1.0 if early else 0.15)
        if not run.is_fresh or run.progress() > 0.15:
            targets = [[plate_drawing.CHARACTERS.index(character) + 1 for character in text] for text in texts]
            loss = loss + 0.5 * aligned(
                functional.log_softmax(scores, 1).permute(2, 0, 1).cpu(),
                torch.tensor(sum(targets, []), dtype=torch.long),
                torch.full((len(batch),), COLUMNS, dtype=torch.long),
                torch.tensor([len(target) for target in targets]),
            ).to(training.DEVICE)
        run.learn(loss)

        # Measured on the new strips of the batch.
        fresh = examples.fresh
        right += sum(a == b for a, b in zip(read(scores[:fresh].detach().cpu()), texts[:fresh]))
        shown += fresh
        if run.steps % 200 == 0:
            print(
                f"step {run.steps} of time {run.progress():.3f} loss {loss.item():.4f} read {right / shown:.3f} "
                f"drawn {examples.drawn} {run.pace()}",
                flush=True,
            )
            right = shown = 0
        if run.steps % 1000 == 0:
            run.save(example, {0: "strips"})
    run.save(example, {0: "strips"})
    examples.stop()


if __name__ == "__main__":
    main()
