#!/usr/bin/env python3
"""Writes the transitions of every zone of the system's tz database for
1970-2037, as Python's zoneinfo reads them, to the file named by argv[1]:
a line "Z<TAB>name" per zone, then "T<TAB>time<TAB>offset<TAB>isdst<TAB>abbreviation"
per transition. The zone tests compare the library's reader with it."""
import os
import sys
from zoneinfo import _common

ROOT = sys.argv[2] if len(sys.argv) > 2 else "/usr/share/zoneinfo"
FIRST, END = 0, 2145916800  # 1970-01-01 to 2038-01-01


def zone_names():
    for directory, subdirectories, files in os.walk(ROOT):
        subdirectories[:] = sorted(d for d in subdirectories if d not in ("posix", "right"))
        for name in sorted(files):
            path = os.path.join(directory, name)
            with open(path, "rb") as stream:
                if stream.read(4) == b"TZif":
                    yield os.path.relpath(path, ROOT)


def main():
    lines = []
    for name in zone_names():
        with open(os.path.join(ROOT, name), "rb") as stream:
            indexes, times, offsets, isdst, abbreviations, _ = _common.load_data(stream)
        lines.append("Z\t%s" % name)
        for time, index in zip(times, indexes):
            if FIRST <= time < END:
                lines.append("T\t%d\t%d\t%d\t%s" % (time, offsets[index], isdst[index],
                                                     abbreviations[index][:31]))
    with open(sys.argv[1], "w") as out:
        out.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
