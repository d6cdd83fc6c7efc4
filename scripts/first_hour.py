"""Types the README's commands at a shell in another root, as a person would, and keeps what is to be seen.

    first_hour.py ROOT README TRANSCRIPT
"""

import os
import pathlib
import pty
import re
import select
import sys
import time

PROMPT = "ann@home:~$ "
HOME = "/home/ann"
PASSWORD = "a password of ann's"
AT_PROMPT = re.escape(PROMPT) + "$"
ASKED = r"(assword|gain)[^\n]*: $"
LONGEST = 3600  # seconds for one command
WIDTH = 130
SHOWN = 24  # lines of one command's output at most


def commands(readme: str) -> list[str]:
    """What the section on one's own folder says to type first: left of two blanks or more."""
    section = readme.split("\n## Your own folder\n")[1].split("\n## ")[0]
    block = re.search(r"(?:^    .*\n)+", section, re.MULTILINE)[0]
    return [re.split(r" {2,}", line[4:])[0] for line in block.splitlines()]


class Shell:
    """bash at a terminal of its own."""

    def __init__(self, root: str):
        process, self.terminal = pty.fork()
        if process == 0:
            os.chroot(root)
            os.chdir(HOME)
            os.execve("/bin/bash", ["bash", "--norc", "-i"], {
                "HOME": HOME, "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "TERM": "dumb", "PS1": PROMPT,
                "LC_ALL": "C.UTF-8", "COLUMNS": "100"})
        self.read_until(AT_PROMPT)

    def read_until(self, end: str) -> str:
        seen, deadline = b"", time.monotonic() + LONGEST
        while time.monotonic() < deadline:
            if select.select([self.terminal], [], [], 1)[0]:
                seen += os.read(self.terminal, 65536)
            text = seen.decode(errors="replace")
            if re.search(end, text):
                return text
        sys.exit(f"Nothing came of it: {seen.decode(errors='replace')[-2000:]}")

    def type(self, line: str) -> str:
        """@return what is to be seen, until the next prompt; passwords are asked for without an echo"""
        os.write(self.terminal, line.encode() + b"\n")
        seen = ""
        if line.endswith("&"):  # it tells when it is ready
            seen = self.read_until(r"listening \S+\r\n")
            os.write(self.terminal, b"\n")
        while True:
            seen += self.read_until(f"{AT_PROMPT}|{ASKED}")
            if seen.endswith(PROMPT):
                return seen.removesuffix(PROMPT)
            os.write(self.terminal, PASSWORD.encode() + b"\n")

    def status(self) -> int:
        return int(re.search(r"^(\d+)\r$", self.type("echo $?"), re.MULTILINE)[1])


def plain(seen: str) -> list[str]:
    """As it stands on the screen in the end: what a line was drawn over with."""
    lines = []
    for line in re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", seen.replace("\r\n", "\n")).split("\n"):
        shown = line.rsplit("\r", 1)[-1].rstrip()
        if shown.startswith(PROMPT + "listening "):  # it comes while the prompt stands there already
            shown = shown.removeprefix(PROMPT)
        lines.append(shown if len(shown) <= WIDTH else shown[:WIDTH - 1] + "…")
    return [line for line in lines if line]


def shortened(lines: list[str]) -> list[str]:
    if len(lines) <= SHOWN:
        return lines
    half = SHOWN // 2
    return [*lines[:half], f"   [{len(lines) - 2 * half} lines]", *lines[-half:]]


def main(root: str, readme: str, transcript: str) -> None:
    shell = Shell(root)
    begun, kept = time.monotonic(), []
    typed = ["git clone -q /srv/stowline.git", "cd stowline", "scripts/demo"]
    for line in typed + commands(pathlib.Path(readme).read_text()) + ["ls -R ~/restored"]:
        before = time.monotonic()
        seen = plain(shell.type(line))
        status = shell.status()
        took = time.monotonic() - before
        kept += shortened([PROMPT + seen[0].removeprefix(PROMPT), *seen[1:]])
        if took > 5:
            kept.append(f"   [{took:.0f} seconds]")
        print(f"   {line}", flush=True)
        if status != 0:
            sys.exit(f"{line} ended with {status}:\n" + "\n".join(seen))
    kept.append(f"[{time.monotonic() - begun:.0f} seconds from git clone to the restored file]")
    shell.type("kill %1")
    pathlib.Path(transcript).write_text("\n".join(kept) + "\n")


main(*sys.argv[1:])
