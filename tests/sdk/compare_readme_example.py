"""compare_readme_example.py ROOT: the README's C++ lines are lines of the example host, one after another."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
shown = re.search(r"```cpp\n(.*?)```", (root / "README.md").read_text(encoding="utf-8"), re.DOTALL)
if shown is None:
    sys.exit("README.md shows no C++")
source = (root / "tools/example_host/main.cpp").read_text(encoding="utf-8")
if shown.group(1) not in source:
    sys.exit("README.md and tools/example_host/main.cpp differ: copy the lines of Play")
