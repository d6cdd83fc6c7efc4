"""Prints the items of a run's record, read without Stowline's code: docs/formats/record.md.

    read_record.py FILE        # prints "kind size sha256 path", a line an item, then a summary
"""
import base64
import gzip
import hashlib
import json
import sys


def text(entry, name):
    packed = entry.get(name + "_b64")
    return base64.b64decode(packed) if packed is not None else entry.get(name, "").encode()


with gzip.open(sys.argv[1]) as record:
    lines = record.read().splitlines(keepends=True)
head, end = json.loads(lines[0]), json.loads(lines[-1])["end"]
assert head["record"] == "stowline run" and head["format"] <= 2
assert end["items"] == len(lines) - 2, "items are missing"
assert end["sha256"] == hashlib.sha256(b"".join(lines[:-1])).hexdigest(), "the lines were changed"
for line in lines[1:-1]:
    item = json.loads(line)
    told = next((name for name in ("gone", "place") if name in item or name + "_b64" in item), None)
    if told:
        sys.stdout.buffer.write(item.get("note", "gone").encode() + b" - - " + text(item, told) + b"\n")
        continue
    digest = item.get("content", {}).get("sha256", "-")
    sys.stdout.buffer.write(f"{item['kind']} {item.get('size', '-')} {digest} ".encode() + text(item, "path") + b"\n")
print(f"run {head['run']}, {head['state']}: {end['items']} lines")
