#!/usr/bin/env python3
"""Times psutil listing every process with the fields the process table reads (CPU time, as the
benchmark compares its own in-process rows).

Usage: process_iter_psutil.py [RUNS]
Prints one line: the median CPU time of one listing, in nanoseconds, over RUNS runs (default 10),
or nothing when psutil is not installed.
"""
import statistics
import sys
import time

try:
    import psutil
except ImportError:
    sys.exit(0)

FIELDS = ["pid", "name", "exe", "cmdline", "environ", "status", "create_time"]


def main() -> int:
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 10
    times = []
    for _ in range(runs):
        start = time.process_time()
        listing = [p.info for p in psutil.process_iter(FIELDS)]
        times.append(time.process_time() - start)
        del listing
    print(f"{statistics.median(times) * 1e9:.0f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
