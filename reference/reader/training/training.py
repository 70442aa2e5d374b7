"""The common part of the training of both networks."""
import argparse
import copy
import math
import os
import random
import time

import torch

DEVICE = torch.device("cuda" if torch.cuda.is_available() else "cpu")


def parse_arguments(description):
    """Reads the command line and seeds the random generators of this process."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("out", help="the ONNX file to write; the state of the training is kept in OUT.state beside it")
    parser.add_argument("--minutes", type=float, required=True)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--from", dest="start", help="the state of an earlier training, whose weights to start from")
    parser.add_argument("--rate", type=float, default=2.5e-3, help="the maximum learning rate")
    arguments = parser.parse_args()
    torch.manual_seed(arguments.seed)
    random.seed(arguments.seed)
    # The other core draws the examples.
    torch.set_num_threads(1)
    return arguments


class Training:
    """A network, the running average of its weights, which is more accurate than its last state, and the learning rate:
    a short warm-up, then half a cosine over the training time. Continues a training that was interrupted."""

    def __init__(self, network, arguments, decay, warmup):
        self.out, self.seconds, self.peak, self.warmup = arguments.out, arguments.minutes * 60, arguments.rate, warmup
        if arguments.start:
            network.load_state_dict(torch.load(arguments.start, map_location=DEVICE)["average"])
        self.network = network.to(DEVICE, memory_format=torch.channels_last)
        self.average = copy.deepcopy(self.network).eval()
        self.optimiser = torch.optim.AdamW(network.parameters(), lr=self.peak, weight_decay=decay)
        self.steps, before = 0, 0.0
        self.is_fresh = not arguments.start
        if os.path.exists(self.out + ".state"):
            state = torch.load(self.out + ".state", map_location=DEVICE)
            self.network.load_state_dict(state["network"])
            self.average.load_state_dict(state["average"])
            self.optimiser.load_state_dict(state["optimiser"])
            self.steps, before = state["steps"], state["seconds"]
        self.started = time.monotonic() - before
        print(sum(value.numel() for value in network.parameters()), "parameters", flush=True)

    def elapsed(self):
        return time.monotonic() - self.started

    def progress(self):
        """0 at the start, 1 at the end."""
        return self.elapsed() / self.seconds

    def learn(self, loss):
        """Changes the weights by one step."""
        rate = self.peak * min(1.0, self.steps / self.warmup + 0.05) * 0.5 * (1 + math.cos(math.pi * min(1.0, self.progress())))
        for group in self.optimiser.param_groups:
            group["lr"] = rate + 1e-5
        self.optimiser.zero_grad()
        loss.backward()
        torch.nn.utils.clip_grad_norm_(self.network.parameters(), 5.0)
        self.optimiser.step()
        self.steps += 1
        self._add_to_average(min(0.999, self.steps / (self.steps + 20)))

    @torch.no_grad()
    def _add_to_average(self, decay):
        for mean, value in zip(self.average.state_dict().values(), self.network.state_dict().values()):
            if mean.dtype.is_floating_point:
                mean.mul_(decay).add_(value, alpha=1 - decay)
            else:
                mean.copy_(value)

    def pace(self):
        return f"{self.elapsed() / max(self.steps, 1) * 1000:.0f} ms a step"

    def save(self, example, axes):
        """Writes the averaged network as ONNX, and the state of the training."""
        state = {
            "network": self.network.state_dict(),
            "average": self.average.state_dict(),
            "optimiser": self.optimiser.state_dict(),
            "steps": self.steps,
            "seconds": self.elapsed(),
        }
        torch.save(state, self.out + ".new")
        os.replace(self.out + ".new", self.out + ".state")
        network = copy.deepcopy(self.average).to("cpu", memory_format=torch.contiguous_format).eval()
        names = {"input_names": ["picture"], "output_names": ["scores"]}
        torch.onnx.export(network, example, self.out, opset_version=11, dynamic_axes={"picture": axes, "scores": axes}, **names)
