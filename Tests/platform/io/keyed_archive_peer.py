#!/usr/bin/env python3
"""Python's plistlib as a peer of our keyed archives.

For every DIR/NAME.ours.xml (an archive our archiver wrote) it checks the layout: "$archiver",
"$version" 100000, "$objects" starting with "$null", "$top" with "root", every {"CF$UID": N}
reference inside "$objects", every record's "$class" a class record whose "$classes" chain starts
with its "$classname" and ends with NSObject. It then writes the same archive in binary with
plistlib's UID type as DIR/NAME.py.bin, and writes DIR/python_made.py.bin, an archive plistlib
builds on its own (a TestPerson with a mutable array of values), for our unarchiver to read.
"""
import datetime
import pathlib
import plistlib
import sys

from plistlib_peer import read_our_documents


def uid_of(value):
    if isinstance(value, dict) and list(value) == ["CF$UID"] and isinstance(value["CF$UID"], int):
        return value["CF$UID"]
    return None


def check(archive):
    problems = []
    if archive.get("$archiver") != "NSKeyedArchiver" or archive.get("$version") != 100000:
        problems.append("no $archiver NSKeyedArchiver / $version 100000")
    objects = archive.get("$objects")
    if not isinstance(objects, list) or not objects or objects[0] != "$null":
        return problems + ["$objects does not start with $null"]
    top = archive.get("$top")
    if not isinstance(top, dict) or uid_of(top.get("root")) is None:
        problems.append("$top has no root reference")

    def references(value):
        found = uid_of(value)
        if found is not None:
            yield found
        elif isinstance(value, dict):
            for item in value.values():
                yield from references(item)
        elif isinstance(value, list):
            for item in value:
                yield from references(item)

    for where, value in [("$top", top)] + [(f"$objects[{i}]", entry) for i, entry in enumerate(objects)]:
        for index in references(value):
            if not 0 <= index < len(objects):
                problems.append(f"{where}: reference {index} outside $objects")
    for i, entry in enumerate(objects):
        if not isinstance(entry, dict) or "$classname" in entry:
            continue
        index = uid_of(entry.get("$class"))
        record = objects[index] if index is not None and 0 <= index < len(objects) else None
        if not isinstance(record, dict) or not isinstance(record.get("$classname"), str):
            problems.append(f"$objects[{i}]: $class is not a class record")
            continue
        chain = record.get("$classes")
        if not isinstance(chain, list) or chain[:1] != [record["$classname"]] or chain[-1:] != ["NSObject"]:
            problems.append(f"$objects[{index}]: $classes {chain} is not the chain of {record['$classname']}")
    return problems


def with_uids(value):
    found = uid_of(value)
    if found is not None:
        return plistlib.UID(found)
    if isinstance(value, dict):
        return {key: with_uids(item) for key, item in value.items()}
    if isinstance(value, list):
        return [with_uids(item) for item in value]
    return value


def python_made():
    uid = plistlib.UID
    objects = [
        "$null",
        {"$class": uid(2), "name": uid(3), "age": 85, "active": True, "score": 0.5, "friend": uid(0),
         "belongings": uid(4)},
        {"$classname": "TestPerson", "$classes": ["TestPerson", "NSObject"]},
        "Grace",
        {"$class": uid(5), "NS.objects": [uid(6), uid(7), uid(8), uid(3)]},
        {"$classname": "NSMutableArray", "$classes": ["NSMutableArray", "NSArray", "NSObject"]},
        1.5,
        {"$class": uid(9), "NS.time": 0.0},
        {"$class": uid(10), "NS.keys": [uid(3)], "NS.objects": [uid(11)]},
        {"$classname": "NSDate", "$classes": ["NSDate", "NSObject"]},
        {"$classname": "NSDictionary", "$classes": ["NSDictionary", "NSObject"]},
        b"\x00\xff",
    ]
    return {"$archiver": "NSKeyedArchiver", "$version": 100000, "$objects": objects, "$top": {"root": uid(1)}}


def main() -> int:
    directory = pathlib.Path(sys.argv[1])
    readable, count, failures = read_our_documents(directory)
    for path, stem, archive in readable:
        problems = check(archive) if isinstance(archive, dict) else ["not a dictionary"]
        for problem in problems:
            print(f"{path.name}: {problem}", file=sys.stderr)
        failures += bool(problems)
        binary = plistlib.dumps(with_uids(archive), fmt=plistlib.FMT_BINARY, sort_keys=False)
        (directory / f"{stem}.py.bin").write_bytes(binary)
    (directory / "python_made.py.bin").write_bytes(plistlib.dumps(python_made(), fmt=plistlib.FMT_BINARY))
    print(f"{count - failures} of {count} archives have the keyed-archive layout")
    return 1 if failures or not count else 0


if __name__ == "__main__":
    sys.exit(main())
