#!/usr/bin/env python3
"""Times Python's plistlib on the document the property-list benchmark wrote.

Usage: plist_vs_plistlib.py FILE
Prints one line: "read_MBps write_MBps". Read rate over FILE's size; write rate over the size of
what plistlib writes. Best of three runs, CPU time, as the benchmark measures its own side: each
run makes its result and drops it, so freeing the values is timed as it is on the C++ side.
"""
import plistlib
import sys
import time


def best_rate(action, size_of_result, runs=3):
    best = float("inf")
    size = 0
    for _ in range(runs):
        start = time.process_time()
        result = action()
        size = size_of_result(result)
        del result
        best = min(best, time.process_time() - start)
    return size / best / 1e6


def main() -> int:
    document = open(sys.argv[1], "rb").read()
    value = plistlib.loads(document)
    read = best_rate(lambda: plistlib.loads(document), lambda _: len(document))
    write = best_rate(lambda: plistlib.dumps(value, fmt=plistlib.FMT_XML, sort_keys=False), len)
    print(f"{read:.2f} {write:.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
