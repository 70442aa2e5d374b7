"""report.py RESULTS DOCS: writes DOCS/benchmarks.md and DOCS/benchmarks.svg from the results of scripts/bench.

Needs only Python.
"""

import collections
import datetime
import glob
import json
import os
import platform
import re
import statistics
import subprocess
import sys

SIZES = ["640x480", "1280x720", "1920x1080", "3840x2160"]
OURS = "vexlane-"
BASELINE = "libyuv"
BOUND = "trivial-copy"
BASELINES = [BASELINE, "swscale", "OpenCV"]
AS_FROM_MALLOC = 16
BEYOND = [1, 16, 32]
COPIES = [BOUND, "memcpy"]


class Rooms:
    """The medians of the program rooms, in microseconds, by benchmark name."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            entries = json.load(file)["benchmarks"]
        # Benchmarks run in random order; families are numbered in the order of registration.
        entries.sort(key=lambda entry: entry["family_index"])
        to_microseconds = {"ns": 1e-3, "us": 1.0, "ms": 1e3}
        self.microseconds = {}
        self.items = {}
        for entry in entries:
            if entry.get("aggregate_name") == "median":
                name = entry["run_name"]
                self.microseconds[name] = entry["cpu_time"] * to_microseconds[entry["time_unit"]]
                if "items_per_second" in entry:
                    self.items[name] = entry["items_per_second"]

    def kernels(self):
        """Our kernels, the preferred one first."""
        start = f"bgr24/{SIZES[0]}/hot/{AS_FROM_MALLOC}/{OURS}"
        return [name[len(start) :] for name in self.microseconds if name.startswith(start)]

    def conversion(self, size, temperature, label, layout="bgr24", beyond=AS_FROM_MALLOC):
        return self.microseconds[f"{layout}/{size}/{temperature}/{beyond}/{label}"]

    def over_aligned(self, size, temperature, label, beyond):
        """Time relative to the same conversion from a source that begins with a page."""
        unaligned = self.conversion(size, temperature, label, beyond=beyond)
        return unaligned / self.conversion(size, temperature, label, beyond=0)

    def speed(self, size, temperature, label):
        """Speed relative to the baseline."""
        return self.conversion(size, temperature, BASELINE) / self.conversion(size, temperature, label)


def table(head, rows):
    lines = ["| " + " | ".join(str(cell) for cell in head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def title(label):
    return f"ours, {label[len(OURS):]}" if label.startswith(OURS) else label.replace("-", " ")


def output_of(*command):
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    except OSError:
        return ""
    return done.stdout


def machine():
    cpu = dict(re.findall(r"^\s*([^:]+):\s+(.+)$", output_of("env", "LC_ALL=C", "lscpu"), re.MULTILINE))
    compilers = [output_of(name, "--version").splitlines() for name in ("g++", "x86_64-w64-mingw32-g++-posix")]
    levels = ("L1d", "L2", "L3")
    caches = [f"{level} {cpu[level + ' cache']}" for level in levels if level + " cache" in cpu]
    return table(
        ["", ""],
        [
            ("processor", cpu.get("Model name", platform.processor())),
            ("cores", cpu.get("CPU(s)", os.cpu_count())),
            ("caches", ", ".join(caches)),
            ("system", f"{platform.system()} {platform.release()}"),
            ("compilers", "; ".join(lines[0] for lines in compilers if lines)),
            ("date", datetime.date.today().isoformat()),
        ],
    )


def conversion_tables(rooms, kernels):
    labels = [OURS + kernel for kernel in kernels] + BASELINES + COPIES
    text = ""
    for temperature, what in (
        ("hot", "One source and one target, repeatedly."),
        ("cold", "Sources that rotate through 160 MB, so that none is cached; one target."),
    ):
        rows = [
            [title(label)] + [f"{rooms.speed(size, temperature, label):.2f}" for size in SIZES] for label in labels
        ]
        rows.append(
            [f"{BASELINE}, µs per frame"] + [f"{rooms.conversion(size, temperature, BASELINE):.1f}" for size in SIZES]
        )
        text += f"### {temperature.capitalize()}: times the speed of {BASELINE}\n\n{what}\n\n"
        text += table(["", *SIZES], rows) + "\n"
        over = [[title(label)] + [
            f"{rooms.conversion(size, temperature, label) / rooms.conversion(size, temperature, BOUND):.2f}"
            for size in SIZES
        ] for label in labels[: len(kernels)]]
        text += f"### {temperature.capitalize()}: time relative to the trivial copy\n\n{table(['', *SIZES], over)}\n"

    text += "### Unaligned sources: time relative to a source that begins at a multiple of 64\n\n"
    text += "Each cell is of sources that begin " + ", ".join(map(str, BEYOND[:-1])) + f" and {BEYOND[-1]} bytes after one.\n\n"
    rows = [
        [f"{title(OURS + kernel)}, {temperature}"]
        + [
            " / ".join(f"{rooms.over_aligned(size, temperature, OURS + kernel, beyond):.2f}" for beyond in BEYOND)
            for size in SIZES
        ]
        for kernel in kernels
        for temperature in ("hot", "cold")
    ]
    text += table(["", *SIZES], rows) + "\n"

    layouts = {"bgr24-from-422": "from 4:2:2", "planar": "to planes", "grey": "from grey"}
    rows = [
        [f"{title(OURS + kernel)}, {what}"]
        + [
            f"{rooms.conversion(size, 'hot', OURS + kernel, layout) / rooms.conversion(size, 'hot', OURS + kernel):.2f}"
            for size in SIZES
        ]
        for kernel in kernels
        for layout, what in layouts.items()
    ]
    text += "### Other layouts: time relative to the same kernel from I420 to interleaved, hot\n\n"
    return text + table(["", *SIZES], rows)


def text_distance_table(rooms):
    kinds = {"7-to-15": "7 to 15 characters", "padded-to-15": "7 to 9 characters, then NULs up to 15"}
    rows = []
    for kind, what in kinds.items():
        ours, ready, rolling = (
            1e9 / rooms.items[f"text-distance/{kind}/{label}"] for label in ("vexlane", "vexlane-ready", "rolling-rows")
        )
        times = [f"{nanoseconds:.0f} ns" for nanoseconds in (ours, ready, rolling)]
        rows.append((what, f"{rolling / ours:.1f}", f"{rolling / ready:.1f}", *times))
    speeds = ["times the speed of rolling rows", "with one text prepared"]
    return table(["texts", *speeds, "ours", "with one text prepared", "rolling rows"], rows)


def tracker_table(rooms):
    counts = (1, 10, 100)
    one = rooms.microseconds["tracker/tracks:1/texts:1"]
    rows = []
    for tracks in counts:
        times = [rooms.microseconds[f"tracker/tracks:{tracks}/texts:{texts}"] for texts in counts]
        rows.append([tracks] + [f"{time / one:.1f} ({time:.2f} µs)" for time in times])
    return table(["tracks"] + [f"{texts} text{'s' if texts > 1 else ''} per track" for texts in counts], rows)


def standing_plate_table(standing):
    row = (
        f"{standing['last_over_first']:.2f}",
        f"{standing['first_thousand_us']:.2f}",
        f"{standing['last_thousand_us']:.2f}",
        f"{standing['bytes_a_reading']:.0f}",
    )
    return table(["last / first", "first, µs per frame", "last, µs per frame", "bytes per reading"], [row])


def read_lines(path):
    with open(path, encoding="utf-8") as file:
        return [json.loads(line) for line in file if line.strip()]


class FramePaths:
    """Output of frame-path with nested objects flattened: a list of rounds for each system, kernel and name."""

    def __init__(self, results):
        self.rounds = collections.defaultdict(list)
        for path in sorted(glob.glob(os.path.join(results, "frame-path-*.json"))):
            _, _, system, kernel, _ = os.path.basename(path).split("-")
            for name, value in read_lines(path)[0].items():
                parts = value.items() if isinstance(value, dict) else [("", value)]
                for part, number in parts:
                    self.rounds[system, kernel, f"{name}.{part}" if part else name].append(number)

    def systems(self):
        return sorted({system for system, _, _ in self.rounds})

    def median(self, system, kernel, name):
        return statistics.median(self.rounds[system, kernel, name])

    def conversions(self, system, kernel):
        """Time of a large frame minus that of a tiny one, for each round."""
        return [
            large - tiny
            for large, tiny in zip(self.rounds[system, kernel, "full_hd_us"], self.rounds[system, kernel, "tiny_us"])
        ]

    def windows_over_linux(self, kernel):
        """Median ratio of adjacent runs."""
        pairs = zip(self.conversions("windows", kernel), self.conversions("linux", kernel))
        return statistics.median(windows / linux for windows, linux in pairs)


def frame_path_tables(paths, kernels):
    runs = [(system, kernel) for kernel in kernels for system in paths.systems()]
    rows = []
    for system, kernel in runs:
        times = [paths.median(system, kernel, name) for name in ("tiny_us", "tiny_ten_tracks_us", "full_hd_us")]
        share = statistics.median(paths.conversions(system, kernel)) / times[2]
        rows.append([f"{kernel}, {system.capitalize()}"] + [f"{time:.1f}" for time in times] + [f"{share:.0%}"])
    head = ["kernel", "64x48, no plates", "64x48, five plates, ten tracks", "1920x1080, no plates", "conversion's share"]
    text = "Microseconds per frame:\n\n" + table(head, rows) + "\n"

    rows = [
        [f"{kernel}, {system.capitalize()}"]
        + [f"{paths.median(system, kernel, f'receive_over_kernel.{size}'):.2f}" for size in SIZES]
        for system, kernel in runs
    ]
    text += "Time of a whole call of the library over the time of its kernel alone, with the same source and target:\n\n"
    text += table(["kernel", *SIZES], rows) + "\n"

    many = int(paths.median(*runs[0], "full_hd_copies.threads"))
    rows = []
    for system, kernel in runs:
        row = [f"{kernel}, {system.capitalize()}"]
        for name in ("full_hd_channels", "tiny_ten_tracks_channels"):
            row += [f"{paths.median(system, kernel, f'{name}.{part}'):.0f}" for part in ("one", "all")]
            row.append(f"{paths.median(system, kernel, name + '.ratio'):.2f}")
        row += [f"{paths.median(system, kernel, f'{name}.ratio'):.2f}" for name in ("full_hd_copies", "allocations")]
        rows.append(row)
    text += f"Frames per second through 1 channel and through {many}, one thread each, and the ratio of the latter to {many} times\n"
    text += "the former. The last columns are that ratio for threads that share nothing: they copy as many bytes as a frame of\n"
    text += "1920x1080, which is the machine's limit at that moment, or allocate as often as a frame with five plates, which is the\n"
    text += "limit of the allocator. On Windows it is measured under Wine, with Wine's allocator.\n\n"
    heads = [cell for size in ("1920x1080", "64x48, ten tracks") for cell in (f"{size}: 1", many, "ratio")]
    text += table(["kernel", *heads, "machine", "allocator"], rows)

    if "windows" in paths.systems():
        rows = [(kernel, f"{paths.windows_over_linux(kernel):.2f}") for kernel in kernels]
        text += "\nTime of the conversion in the Windows DLL, under Wine, relative to the Linux library:\n\n"
        text += table(["kernel", "Windows / Linux"], rows)
    return text


class Picture:
    """Bars in two panels, hot and cold: speed relative to the baseline, by size."""

    WIDTH, HEIGHT = 900, 330
    LEFT, TOP, BOTTOM = 50, 60, 40
    COLOURS = ["#1b5e9b", "#3d85c6", "#76a9d8", "#a9c8e6", "#cfe0f0"]
    OTHERS = {BASELINE: "#d9822b", "swscale": "#e8a860", "OpenCV": "#f1cfa5", BOUND: "#8a8a8a", "memcpy": "#c4c4c4"}

    def __init__(self, rooms, kernels):
        self.rooms = rooms
        self.labels = [OURS + kernel for kernel in kernels] + list(self.OTHERS)
        self.colours = {OURS + kernel: self.COLOURS[number % 5] for number, kernel in enumerate(kernels)} | self.OTHERS
        self.parts = []

    def text(self, x, y, what, anchor="middle", size=12):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}">{what}</text>')

    def bar(self, x, y, width, height, label):
        self.parts.append(
            f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" fill="{self.colours[label]}"/>'
        )

    def panel(self, top, temperature, highest):
        height = self.HEIGHT - self.TOP - self.BOTTOM
        base = top + self.TOP + height
        scale = height / highest
        self.text(self.LEFT, top + self.TOP - 12, f"{temperature}: times the speed of {BASELINE}", "start", 14)
        step = max(1, round(highest / 6))
        for mark in range(0, int(highest) + 1, step):
            y = base - mark * scale
            self.parts.append(f'<path d="M{self.LEFT} {y:.1f}H{self.WIDTH - 10}" stroke="#dddddd"/>')
            self.text(self.LEFT - 8, y + 4, mark, "end")
        group = (self.WIDTH - self.LEFT - 10) / len(SIZES)
        bar = group * 0.86 / len(self.labels)
        for number, size in enumerate(SIZES):
            x = self.LEFT + number * group + group * 0.07
            for place, label in enumerate(self.labels):
                speed = self.rooms.speed(size, temperature, label)
                self.bar(x + place * bar, base - speed * scale, bar * 0.9, speed * scale, label)
                self.text(x + (place + 0.45) * bar, base - speed * scale - 3, f"{speed:.1f}", size=9)
            self.text(x + group * 0.43, base + 18, size)

    def legend(self, y, labels):
        for place, label in enumerate(labels):
            x = self.LEFT + place * 140
            self.bar(x, y - 10, 11, 11, label)
            self.text(x + 16, y, title(label), "start")

    def draw(self):
        speeds = [self.rooms.speed(size, heat, label) for size in SIZES for heat in ("hot", "cold") for label in self.labels]
        highest = max(speeds) * 1.08
        self.legend(24, [label for label in self.labels if label not in self.OTHERS])
        self.legend(44, list(self.OTHERS))
        self.panel(30, "hot", highest)
        self.panel(20 + self.HEIGHT, "cold", highest)
        height = 20 + 2 * self.HEIGHT
        return (
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {self.WIDTH} {height}" font-family="sans-serif">\n'
            f'<rect width="{self.WIDTH}" height="{height}" fill="white"/>\n' + "\n".join(self.parts) + "\n</svg>\n"
        )


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: report.py RESULTS DOCS")
    results, docs = sys.argv[1:]
    rooms = Rooms(os.path.join(results, "rooms.json"))
    kernels = rooms.kernels()
    conversions = conversion_tables(rooms, kernels)
    standing = read_lines(os.path.join(results, "standing-plate.json"))[0]
    frames = frame_path_tables(FramePaths(results), kernels)

    page = f"""# Benchmarks

`scripts/bench` measures all of this in one run and writes this page. The values are medians of interleaved
repetitions, on one thread unless stated otherwise. The other libraries use other matrices, so only the speed is comparable.
The trivial copy is the bound: it reads the 1.5 bytes per pixel of each frame and writes 3, without computing anything. It
stores through the caches; if a target is larger than they are, a kernel with non-temporal stores may be faster.
Sources begin, unless stated otherwise, 16 bytes after the beginning of a page, where glibc's malloc puts large blocks;
targets are images as the library allocates them.

{machine()}
## Conversion from I420 to blue, green, red

![Bars of the speed of each kernel and library](benchmarks.svg)

{conversions}
## Text distance

Half of the pairs are one plate misread in a character, the others two plates. The tracker prepares a reading once and
compares it with all known texts.

{text_distance_table(rooms)}
## Tracker

The time of a frame with five plates (one plate with one track), relative to one track with one text:

{tracker_table(rooms)}
A vehicle that stands for an hour, {standing["frames"]} frames, and is read as {standing["texts"]} texts: its last thousand frames
and the first thousand with as many known texts:

{standing_plate_table(standing)}
## A whole frame

The built library, called as by a host, with the idle engine.

{frames}"""
    with open(os.path.join(docs, "benchmarks.md"), "w", encoding="utf-8") as file:
        file.write(page)
    with open(os.path.join(docs, "benchmarks.svg"), "w", encoding="utf-8") as file:
        file.write(Picture(rooms, kernels).draw())
    print(f"bench: written: {docs}/benchmarks.md, {docs}/benchmarks.svg")


if __name__ == "__main__":
    main()
