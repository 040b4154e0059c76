#!/usr/bin/env python3
"""Holds the arrows between the folders and rooms of src: an include may only name an earlier one.

Usage: includes.py SRC. Prints each include that points the wrong way, and a circle of headers if
there is one.
"""
import graphlib
import re
import sys
from pathlib import Path

# Each may use those before it. A folder's own name stands for the files that lie in no room.
ORDER = [
    "base",
    "mp4format", "mp4format/atoms", "mp4format/tables", "mp4format/movie", "mp4format/fragments",
    "effects",
    "movie", "movie/umc", "movie/engine", "movie/objects", "movie/waveform", "movie/facts", "movie/save",
    "app", "playback", "cli",
]


def main():
    src, faults, includes = Path(sys.argv[1]), [], {}
    for path in sorted(src.rglob("*.h")) + sorted(src.rglob("*.cpp")):
        file = path.relative_to(src).as_posix()
        room = path.parent.relative_to(src).as_posix()
        if room not in ORDER:
            faults.append(f"{file}: its room {room} has no place in the order")
            continue
        named = re.findall(r'^#include "([^"]+)"', path.read_text(), re.M)
        includes[file] = named
        for other in named:
            target = other.rpartition("/")[0]
            if target not in ORDER or ORDER.index(target) > ORDER.index(room):
                faults.append(f"{file} includes {other}, which is not before it")
    try:
        graphlib.TopologicalSorter(includes).prepare()
    except graphlib.CycleError as circle:
        faults.append("circle: " + " <- ".join(circle.args[1]))
    print("\n".join(faults))
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
