#!/usr/bin/env python3
"""Python's plistlib as a peer of our property-list code.

For every DIR/NAME.ours.xml (written by our writer) it reads the document with plistlib, failing
when plistlib cannot, and writes the value back with plistlib as DIR/NAME.py.xml and
DIR/NAME.py.bin, for our reader to compare with what was written.
"""
import pathlib
import plistlib
import sys


def read_our_documents(directory: pathlib.Path):
    """Reads each DIR/NAME.ours.xml with plistlib, reporting every one it cannot read.

    Answers the readable ones as (path, stem, value), the count of documents and the failures."""
    documents = sorted(directory.glob("*.ours.xml"))
    readable = []
    failures = 0
    for path in documents:
        try:
            readable.append((path, path.name[: -len(".ours.xml")], plistlib.loads(path.read_bytes())))
        except Exception as error:  # report every document that fails, not just the first
            print(f"{path.name}: plistlib cannot read it: {error}", file=sys.stderr)
            failures += 1
    return readable, len(documents), failures


def main() -> int:
    directory = pathlib.Path(sys.argv[1])
    readable, count, failures = read_our_documents(directory)
    for _, stem, value in readable:
        (directory / f"{stem}.py.xml").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_XML, sort_keys=False))
        (directory / f"{stem}.py.bin").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_BINARY, sort_keys=False))
    print(f"plistlib read {count - failures} of {count} documents")
    return 1 if failures or not count else 0


if __name__ == "__main__":
    sys.exit(main())
