#!/usr/bin/env python3
"""Compares the virtual tables that a compiler lays out for the host contract with the written list of slots.

    compare_table_layouts.py --compiler clang++ --abi microsoft|itanium --root TREE --slots slots.txt...
        [--include HEADER] [--only NAMESPACE]

The compiler must be clang, which prints the tables with the names of pure operations. The interfaces are declared in
the headers of sdk/ and those that --include names.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile
from itertools import zip_longest


def read_slots(path):
    """Returns {interface: (base, {slot: operation}, [further table])}, in the order of the file."""
    interfaces = {}
    with open(path, encoding="utf-8") as lines:
        for line in (raw.strip() for raw in lines):
            if not line or line.startswith("#"):
                continue
            opening = re.fullmatch(r"interface (\S+)(?: : (\S+))?", line)
            if opening:
                own, further = {}, []
                interfaces[opening[1]] = (opening[2], own, further)
                continue
            if line.startswith("then "):
                further.append(line.removeprefix("then "))
                continue
            number, operation = line.split(" ", 1)
            own[int(number)] = operation
    return interfaces


def whole_table(interfaces, name):
    """Returns the operations of an interface's first table, those of its base first."""
    base, own, _ = interfaces[name]
    table = whole_table(interfaces, base) if base else []
    for number, operation in own.items():
        if number != len(table):
            raise SystemExit(f"{name}: slot {number} is listed where slot {len(table)} is expected")
        table.append(plain(operation))
    return table


def plain(operation):
    """Returns an operation without qualifiers: 'void *OKM8::A::F(int) [pure]' becomes 'void *F(int)'."""
    operation = re.sub(r"\s*\[.*\]$", "", operation)
    if re.search(r"::~\w+\(\)$", operation) or "DestructorSlot(unsigned int)" in operation:
        return "destructor"
    return re.sub(r"\b(?:\w+::)+", "", operation)


def dumped_tables(compiler, abi, root, further_headers, interfaces):
    """Returns {interface: [[operation]]}, the tables of each interface as the compiler lays them out."""
    headers = sorted(f"sdk/{name}" for name in os.listdir(os.path.join(root, "sdk")) if name.endswith(".h"))
    source = "".join(f'#include "{name}"\n' for name in headers + further_headers)
    # A constructor needs the tables of its bases, so the compiler lays them out.
    source += "template <class Interface> struct Probe : Interface { Probe(); };\n"
    source += "template <class Interface> Probe<Interface>::Probe() {}\n"
    source += "".join(f"template struct Probe<{name}>;\n" for name in interfaces)

    target = {"microsoft": "x86_64-pc-windows-msvc", "itanium": "x86_64-pc-linux-gnu"}[abi]
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "probe.cpp")
        with open(path, "w", encoding="utf-8") as file:
            file.write(source)
        run = subprocess.run(
            [compiler, f"--target={target}", "-std=c++20", "-ffreestanding", "-fno-exceptions",
             "-fno-threadsafe-statics", f"-I{root}", "-Xclang", "-fdump-vtable-layouts", "-S", "-emit-llvm", "-o",
             os.devnull, path],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if run.returncode != 0:
        raise SystemExit(run.stdout)

    tables = {name: [] for name in interfaces}
    title = re.compile(r"(VFTable|Vtable) for (.*) \(\d+ entr(?:y|ies)\)\.")
    name = None
    for line in run.stdout.splitlines():
        heading = title.fullmatch(line)
        if heading:
            # 'A' in 'B' in 'C': the table of the base A of the base B of the class C.
            name = re.findall(r"'([^']*)'", heading[2])[-1]
            name = name if name in interfaces else None
        elif not line.strip():
            name = None
        entry = re.fullmatch(r"\s*\d+ \| (.*)", line)
        if name is None or not entry or entry[1].startswith("offset_to_top"):
            continue
        if entry[1].endswith(" RTTI"):
            tables[name].append([])
        else:
            tables[name][-1].append(plain(entry[1]))
    return tables


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("--abi", required=True, choices=["microsoft", "itanium"])
    parser.add_argument("--root", required=True)
    parser.add_argument("--slots", required=True, nargs="+")
    parser.add_argument("--include", default=[], action="append")
    parser.add_argument("--only", default="")
    options = parser.parse_args()

    interfaces = {}
    for path in options.slots:
        interfaces.update(read_slots(path))
    compared = [name for name in interfaces if name.startswith(options.only)]
    tables = dumped_tables(options.compiler, options.abi, options.root, options.include, compared)
    failures = 0
    for name in compared:
        expected = [whole_table(interfaces, name)] + [whole_table(interfaces, other) for other in interfaces[name][2]]
        actual = tables[name]
        if actual == expected:
            continue
        failures += 1
        print(f"{name}:")
        for number, (want, have) in enumerate(zip_longest(expected, actual, fillvalue=[])):
            for slot, (wanted, found) in enumerate(zip_longest(want, have, fillvalue="nothing")):
                if wanted != found:
                    print(f"  table {number}, slot {slot}: {found} instead of {wanted}")
    print(f"{len(compared)} interfaces compared, {failures} differ")
    return 1 if failures or not compared else 0


if __name__ == "__main__":
    sys.exit(main())
