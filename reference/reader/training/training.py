"""The common part of the training of both networks."""
import argparse
import copy
import math
import random
import time

import torch


def parse_arguments(description):
    """Reads the command line and seeds the random generators of this process."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("out", help="the ONNX file to write; the weights for further training are written beside it")
    parser.add_argument("--minutes", type=float, required=True)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--from", dest="start", help="weights to start from")
    parser.add_argument("--rate", type=float, default=2.5e-3, help="the maximum learning rate")
    arguments = parser.parse_args()
    torch.manual_seed(arguments.seed)
    random.seed(arguments.seed)
    # The other core draws the examples.
    torch.set_num_threads(1)
    return arguments


def prepare(network, arguments):
    """Returns the network, with the initial weights if any, in a memory layout for the processor, and its average."""
    if arguments.start:
        network.load_state_dict(torch.load(arguments.start))
    network = network.to(memory_format=torch.channels_last)
    print(sum(value.numel() for value in network.parameters()), "parameters", flush=True)
    return network, Average(network)


class Average:
    """The running average of a network's weights, which is more accurate than its last state."""

    def __init__(self, network, decay=0.999):
        self.network = copy.deepcopy(network).eval()
        self.decay = decay
        self.steps = 0

    @torch.no_grad()
    def add(self, network):
        self.steps += 1
        decay = min(self.decay, self.steps / (self.steps + 20))
        for mean, value in zip(self.network.state_dict().values(), network.state_dict().values()):
            if mean.dtype.is_floating_point:
                mean.mul_(decay).add_(value, alpha=1 - decay)
            else:
                mean.copy_(value)


class Schedule:
    """The learning rate over the training time: a short warm-up, then half a cosine."""

    def __init__(self, optimiser, minutes, peak, warmup=200):
        self.optimiser, self.seconds, self.peak, self.warmup = optimiser, minutes * 60, peak, warmup
        self.started = time.monotonic()
        self.steps = 0

    def progress(self):
        """0 at the start, 1 at the end."""
        return (time.monotonic() - self.started) / self.seconds

    def step(self):
        share = min(1.0, self.progress())
        rate = self.peak * min(1.0, self.steps / self.warmup + 0.05) * 0.5 * (1 + math.cos(math.pi * share)) + 1e-5
        for group in self.optimiser.param_groups:
            group["lr"] = rate
        self.steps += 1


def save(average, example, path, **export):
    """Writes the averaged network as ONNX, and beside it the weights for further training."""
    network = copy.deepcopy(average.network).to(memory_format=torch.contiguous_format).eval()
    torch.save(network.state_dict(), path + ".weights")
    torch.onnx.export(
        network, example, path, opset_version=11, input_names=["picture"], output_names=["scores"], **export
    )
