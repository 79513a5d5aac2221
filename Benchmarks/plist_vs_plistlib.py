#!/usr/bin/env python3
"""Times Python's plistlib on the document the property-list benchmark wrote.

Usage: plist_vs_plistlib.py FILE [RUNS]
Prints one line: "read_MBps write_MBps". Read rate over FILE's size; write rate over the size of
what plistlib writes. The median of RUNS runs (default 5), CPU time, as the benchmark measures its
own side: each run makes its result and drops it, so freeing the values is timed as it is on the
C++ side.
"""
import plistlib
import statistics
import sys
import time


def median_rate(action, size_of_result, runs):
    times = []
    size = 0
    for _ in range(runs):
        start = time.process_time()
        result = action()
        size = size_of_result(result)
        del result
        times.append(time.process_time() - start)
    return size / statistics.median(times) / 1e6


def main() -> int:
    document = open(sys.argv[1], "rb").read()
    value = plistlib.loads(document)
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    read = median_rate(lambda: plistlib.loads(document), lambda _: len(document), runs)
    write = median_rate(lambda: plistlib.dumps(value, fmt=plistlib.FMT_XML, sort_keys=False), len, runs)
    print(f"{read:.2f} {write:.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
