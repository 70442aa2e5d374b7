#!/usr/bin/env python3
"""Compares the virtual tables of the detector classes, as the compiler of this tree built them, with the written list.

    compare_detector_tables.py --slots slots.txt detector_slots.txt --assembly FILE... --demangler c++filt

FILE is the output of the compiler with -S for a source of the classes.
"""

import argparse
import re
import subprocess
import sys
from itertools import zip_longest

# No cache is written among the sources: scripts/test would report it as a change.
sys.dont_write_bytecode = True
from compare_table_layouts import read_slots, whole_table

CLASSES = {
    "_ZTVN17plate_recognition16BaseDetectorImplE": "plate_recognition::BaseDetectorImpl",
    "_ZTVN17plate_recognition19VexlaneDetectorImplE": "plate_recognition::VexlaneDetectorImpl",
}
PURE = "__cxa_pure_virtual"
PURE_OPERATIONS = {
    "plate_recognition::BaseDetectorImpl": {"destructor", "Recognize(FrameImage&, shared_ptr<ICompositeBuffer>)"},
    "plate_recognition::VexlaneDetectorImpl": set(),
}


def signature(operation):
    """Returns one spelling for an operation of the demangler or the list: 'F(char const*, int) const'."""
    if operation == "destructor" or re.search(r"::DestructorSlot\(unsigned int\)$", operation):
        return "destructor"
    operation = operation.removeprefix("non-virtual thunk to ").replace("[abi:cxx11]", "")
    operation = re.sub(r"std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> ?>", "string",
                       operation)
    operation = operation.replace("image_transform::ImageData", "FrameImage")
    operation = re.sub(r"> (?=>)", ">", operation)
    operation = re.sub(r"vector<(.+), std::allocator<\1>>", r"vector<\1>", operation)
    operation = re.sub(r"<plate_recognition::BaseDetectorImpl>::", "::", operation)
    operation = re.sub(r"\b(?:\w+::)+", "", operation)
    name, rest = operation.split("(", 1)
    parameters, qualifier = rest.rsplit(")", 1)
    parameters = re.sub(r"\buint32_t\b", "unsigned int", parameters)
    parameters = re.sub(r"\bint32_t\b", "int", parameters)
    parameters = [
        re.sub(r"\s+(?=[*&])", "", re.sub(r"^const ((?:\w|<.*>)+)", r"\1 const", parameter.strip()))
        for parameter in re.split(r",(?![^<]*>)", parameters)
    ]
    return f"{re.split(r'[ *&]', name)[-1]}({', '.join(parameters)}){qualifier}"


def built_tables(assembly):
    """Returns {class: [[symbol]]}, the tables of each class in order."""
    tables = {}
    for path in assembly:
        tables_of_class = None
        with open(path, encoding="utf-8") as lines:
            for line in lines:
                label = re.match(r"(\w+):", line)
                if label:
                    tables_of_class = None
                    if label[1] in CLASSES:
                        tables_of_class = tables.setdefault(CLASSES[label[1]], [])
                        tables_of_class.clear()
                entry = re.match(r"\s*\.quad\s+(\S+)", line)
                if tables_of_class is None or not entry or re.fullmatch(r"-?\d+", entry[1]):
                    continue
                if entry[1].startswith("_ZTI"):
                    tables_of_class.append([])
                else:
                    tables_of_class[-1].append(entry[1])
    return tables


def demangle(tables, demangler):
    symbols = sorted({symbol for group in tables.values() for table in group for symbol in table})
    run = subprocess.run([demangler], input="\n".join(symbols), stdout=subprocess.PIPE, text=True, check=True)
    names = dict(zip(symbols, run.stdout.splitlines(), strict=True))
    return {name: [[names[symbol] for symbol in table] for table in group] for name, group in tables.items()}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--slots", required=True, nargs="+")
    parser.add_argument("--assembly", required=True, nargs="+")
    parser.add_argument("--demangler", required=True)
    options = parser.parse_args()

    interfaces = {}
    for path in options.slots:
        interfaces.update(read_slots(path))
    tables = demangle(built_tables(options.assembly), options.demangler)
    failures = 0
    compared = 0
    for name in CLASSES.values():
        expected = [whole_table(interfaces, name)] + [whole_table(interfaces, other) for other in interfaces[name][2]]
        actual = tables.get(name, [])
        for number, (want, have) in enumerate(zip_longest(expected, actual, fillvalue=[])):
            for slot, (wanted, found) in enumerate(zip_longest(want, have)):
                compared += 1
                wanted = signature(wanted) if wanted else "nothing"
                if found == PURE and wanted in PURE_OPERATIONS[name]:
                    continue
                found = signature(found) if found and found != PURE else found or "nothing"
                if wanted != found:
                    failures += 1
                    print(f"{name}: table {number}, slot {slot}: {found} instead of {wanted}")
    print(f"{compared} slots compared, {failures} differ")
    return 1 if failures or not compared else 0


if __name__ == "__main__":
    sys.exit(main())
