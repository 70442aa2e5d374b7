"""Training examples, drawn by another process during the training."""
import multiprocessing
import random

import cv2
import numpy as np


def _draw(make, seed, count, queue):
    random.seed(seed)
    np.random.seed(seed % 2**32)
    cv2.setNumThreads(1)
    draw = make()
    while True:
        queue.put([draw() for _ in range(count)])


class Examples:
    """Batches with `fresh` new examples each; the rest are repeated from earlier batches.

    `make` returns a function that draws one example; it runs in its own process.
    """

    def __init__(self, make, seed, batch, fresh, buffer_size):
        self.queue = multiprocessing.Queue(maxsize=16)
        self.drawer = multiprocessing.Process(target=_draw, args=(make, seed, fresh, self.queue), daemon=True)
        self.drawer.start()
        self.batch, self.fresh, self.buffer_size = batch, fresh, buffer_size
        self.shown = []
        self.drawn = 0

    def next_batch(self):
        new = self.queue.get()
        self.drawn += len(new)
        old = random.choices(self.shown, k=self.batch - self.fresh) if self.shown else []
        if len(self.shown) < self.buffer_size:
            self.shown.extend(new)
        else:
            for example in new:
                self.shown[random.randrange(self.buffer_size)] = example
        return new + old

    def stop(self):
        self.drawer.terminate()
