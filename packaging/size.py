#!/usr/bin/env python3
"""usage: packaging/size.py BUILD. What each family costs in the stripped libzema.so of BUILD, beside its budget.

A family's bytes are those that its objects have in the linker's map (code, constants and data; .bss takes no room in a
file and is left out). A text that several objects share counts for the first of them. What no object of ours brings is
"linking": names, relocations, tables of calls, the compiler's start files.
"""
import pathlib
import re
import subprocess
import sys

BUDGET = pathlib.Path(__file__).with_name("size-budget.tsv")
# A piece of a section from an object of ours, its name on a line of its own when that is long: how long, whose.
PIECE = re.compile(r"^ \.\S+\s+0x[0-9a-f]+\s+0x([0-9a-f]+) \S*/zema_(\w+)\.dir/", re.M)


def families(link_map):
    """Bytes by family. What is loaded from the file comes first in the map; .bss ends it."""
    loaded = link_map.read_text().partition("\nLinker script and memory map\n")[2].partition("\n.bss ")[0]
    sizes = {}
    for size, family in PIECE.findall(loaded):
        sizes[family] = sizes.get(family, 0) + int(size, 16)
    return dict(sorted(sizes.items(), key=lambda row: -row[1]))


def main():
    build = pathlib.Path(sys.argv[1])
    stripped = build / "libzema.stripped.so"
    subprocess.run(["arm-linux-gnueabihf-strip", "-o", stripped, build / "lib/libzema.so"], check=True)
    text, data = subprocess.run(["arm-linux-gnueabihf-size", stripped], check=True, capture_output=True,
                                text=True).stdout.splitlines()[1].split()[:2]
    total = int(text) + int(data)
    sizes = families(build / "libzema.link-map")
    sizes |= {"linking": total - sum(sizes.values()), "total": total, "file": stripped.stat().st_size}
    budgets = dict(line.split("\t")[:2] for line in BUDGET.read_text().splitlines() if line and line[0] != "#")
    over = [name for name in budgets.keys() | sizes.keys()
            if name not in budgets or sizes.get(name, 0) > int(budgets[name])]
    print(f"{'libzema.so, ARM, stripped':26} {'bytes':>7} {'budget':>7}  of total")
    for name, size in sizes.items():
        print(f"{name:26} {size:7} {budgets.get(name, 'none'):>7}  {size / total:7.0%}"
              f"{'  OVER THE BUDGET' if name in over else ''}")
    if over:
        sys.exit(f"size: FAILED: {', '.join(sorted(over))}: make it smaller, or say why it is worth it in {BUDGET.name}")
    print("size: within the budget")


main()
