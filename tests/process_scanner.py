"""Looks at every process again and again, for a text that none may show, until its input ends.

    process_scanner.py NAME COUNT    the text comes as the first line of standard input

Looks at the arguments of every process, and at the environment of those called NAME and of its own
parent, but not at its own. Prints "ready", then "seen" when it has seen COUNT processes called NAME, and
at the end one line: looks, processes called NAME that were seen, finds.
"""

import os
import select
import sys


def content(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError:  # the process has ended
        return b""


def main():
    name = sys.argv[1].encode()
    canary = sys.stdin.buffer.readline().rstrip(b"\n")
    looks = finds = 0
    enough = int(sys.argv[2])
    seen = set()
    told = False
    print("ready", flush=True)
    while not select.select([sys.stdin], [], [], 0)[0]:
        looks += 1
        for entry in os.listdir("/proc"):
            if not entry.isdigit() or int(entry) == os.getpid():
                continue
            words = content(f"/proc/{entry}/cmdline")
            shown = words + content(f"/proc/{entry}/comm")
            if os.path.basename(words.split(b"\0")[0]) == name:
                seen.add(entry)
                shown += content(f"/proc/{entry}/environ")
            if int(entry) == os.getppid():
                shown += content(f"/proc/{entry}/environ")
            if canary in shown:
                finds += 1
                print(f"found in process {entry}: {words!r}", file=sys.stderr)
        if not told and len(seen) >= enough:
            told = True
            print("seen", flush=True)
    print(looks, len(seen), finds, flush=True)


main()
