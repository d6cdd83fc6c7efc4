"""Checks every include of the tree against the table of docs/architecture.md.

A file of a folder may include its own folder and those the table names. The rooms of
stowline/platform stand one above the other: each may include those below it; those of stowline/backup
likewise, and of what stands above them only its ground. Operating-system
headers and the wrapped libraries are for stowline/platform alone. Tests may include anything. The
command includes only what is installed. Headers that are installed must stand on their own
(cmake/PublicHeaders.cmake).
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# The rooms of stowline/platform, from the ground up.
PLATFORM_ROOMS = ["text", "threads", "time", "values", "files", "processes", "http", "desktop", "network"]

# Those of the engine, likewise. What stands in stowline/backup/ itself is above them, but for its
# ground: plain values that hosts and every room share.
BACKUP_ROOMS = ["tree", "index", "content", "transfer", "record", "restore", "proof", "forget"]
BACKUP_GROUND = ["Account.h", "ItemSight.h", "RunChoice.h", "RunLoss.h"]

# The development service's. Its page for people is a room above the rest.
DEVSERVER = ["stowline/platform", "stowline/logging", "stowline/soap/SoapMessage.h", "stowline/service/PartHeaders.h"]

MAY_INCLUDE = {
    f"stowline/platform/{room}": [f"stowline/platform/{below}/" for below in PLATFORM_ROOMS[:height]]
    for height, room in enumerate(PLATFORM_ROOMS)
} | {
    f"stowline/backup/{room}": ["stowline/"]
    for room in BACKUP_ROOMS
} | {
    "stowline/logging": ["stowline/platform"],
    "stowline/branding": ["stowline/platform", "stowline/logging"],
    "stowline/net": ["stowline/platform", "stowline/logging"],
    "stowline/util": ["stowline/platform", "stowline/logging", "stowline/branding"],
    "stowline/util/store": ["stowline/platform", "stowline/logging", "stowline/util"],
    "stowline/soap": ["stowline/platform", "stowline/util"],
    "stowline/call": ["stowline/platform", "stowline/util", "stowline/soap"],
    "stowline/service": ["stowline/"],
    "stowline/backup": ["stowline/"],
    "stowline/tool": ["stowline/call", "stowline/soap", "stowline/platform", "stowline/util"],
    "cli": [],
    "devserver": DEVSERVER,
    "devserver/page": ["devserver/"] + DEVSERVER,
}
NEVER = {
    "stowline/service": ["stowline/tool", "stowline/backup"],
    "stowline/backup": ["stowline/tool"],
    "cli/shared": ["cli/commands"],
    "devserver": ["devserver/page/"],
} | {
    f"stowline/backup/{room}": ["stowline/tool"]
    + [f"stowline/backup/{above}/" for above in BACKUP_ROOMS[height + 1:]]
    + sorted(f"stowline/backup/{path.name}" for path in (ROOT / "stowline/backup").glob("*.h")
             if path.name not in BACKUP_GROUND)
    for height, room in enumerate(BACKUP_ROOMS)
}

# C headers of the system, and the libraries that platform wraps.
OPERATING_SYSTEM = re.compile(
    r"<(unistd|fcntl|poll|pthread|spawn|termios|syslog|netdb|pty|sched|dlfcn|grp|pwd|mntent|dirent|semaphore|ifaddrs)\.h>"
    r"|<(sys|linux|netinet|arpa|net)/|<(gio|glib|curl|plist|unicode|openssl|libmount|isa-l)/|<(glib|expat|sodium|zlib|zstd|zstd_errors)\.h>")


def public_headers():
    listed = (ROOT / "cmake/PublicHeaders.cmake").read_text()
    return re.findall(r"^ +(stowline/\S+\.h)$", listed, re.MULTILINE)


# The reference host is built on what any host has: what is installed.
MAY_INCLUDE["cli"] = public_headers()
MAY_INCLUDE["cli/shared"] = public_headers()
MAY_INCLUDE["cli/commands"] = ["cli/shared/"] + public_headers()


def folder_of(path):
    for folder in sorted(MAY_INCLUDE, key=len, reverse=True):
        if path.startswith(folder + "/"):
            return folder
    return None


def may(folder, included):
    if any(included.startswith(never) for never in NEVER.get(folder, [])):
        return False
    return any(included.startswith(allowed) for allowed in [folder + "/"] + MAY_INCLUDE[folder])


def sentence(folder):
    """What a folder may include, in words."""
    never = "".join(f", never {name.rstrip('/')}/" for name in NEVER.get(folder, []) if not name.endswith(".h"))
    if any(name.endswith(".h") for name in NEVER.get(folder, [])):
        never += ", nor of stowline/backup/ itself anything but " + ", ".join(BACKUP_GROUND)
    if folder.startswith("cli"):
        return f"{folder}/ may include itself and the headers that are installed (cmake/PublicHeaders.cmake){never}"
    allowed = ", ".join(name if name.endswith(".h") else f"{name.rstrip('/')}/" for name in MAY_INCLUDE[folder])
    if not allowed:
        return f"{folder}/ may include only itself"
    return f"{folder}/ may include itself and {allowed}{never}"


# What joins the development service and its page stands above both.
JOINERS = ["devserver/main.cpp", "devserver/WebServer.h", "devserver/WebServer.cpp"]

ROOMED = ("stowline/", "cli/", "devserver/")


def without_room(relative):
    """Whether a source stands where the table has no room: in a new folder, or beside the rooms."""
    folder = folder_of(relative)
    if folder is None:
        return relative.startswith(ROOMED)
    below = relative[len(folder) + 1:]
    return "/" in below


def faults():
    for path in sorted(ROOT.glob("**/*")):
        relative = path.relative_to(ROOT).as_posix()
        if path.suffix not in (".h", ".cpp") or relative.startswith("build/"):
            continue
        folder = folder_of(relative)
        if without_room(relative):
            yield f"{relative}: stands in no room of the table (scripts/layering.py)"
            continue
        if folder is None or path.name.endswith(("Test.cpp", "Test.h")):
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            include = re.match(r'\s*#\s*include\s+(["<].*[">])', line)
            if not include:
                continue
            name = include.group(1)
            joins = relative in JOINERS and name.startswith('"devserver/page/')
            if name.startswith('"') and not joins and not may(folder, name.strip('"')):
                yield f"{relative}:{number}: {sentence(folder)}, not {name}"
            if not relative.startswith("stowline/platform/") and OPERATING_SYSTEM.match(name):
                yield f"{relative}:{number}: {name} belongs in stowline/platform/"


# Operations log by themselves, so that a line names the operation and not a function that helps it.
LOGS_ITSELF = re.compile(r"STOWLINE_LOG_\w+\(|logging/LogMacros\.h")


def faults_of_logging():
    """The layer's lines go through its operations (stowline/service/Operation.h)."""
    for path in sorted((ROOT / "stowline/service").glob("*")):
        if path.name.endswith(("Test.cpp", "Test.h")):
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if LOGS_ITSELF.search(line):
                yield f"{path.relative_to(ROOT).as_posix()}:{number}: logs past the operation (OPERATION_LOG_ERROR)"


def faults_of_public_headers():
    """What is installed includes only what is installed, and exports what it declares."""
    public = public_headers()
    for relative in public:
        text = (ROOT / relative).read_text()
        for name in re.findall(r'^#include "(.*)"$', text, re.MULTILINE):
            if name not in public:
                yield f"{relative}: includes {name}, which cmake/PublicHeaders.cmake does not list"
        for name in re.findall(r"^#include <(.*)>$", text, re.MULTILINE):
            if not re.fullmatch(r"[a-z_]+", name):
                yield f"{relative}: a host program would need <{name}> to include it"
        if "\nnamespace stowline" in text and not re.search(
                r"\n#pragma GCC visibility push\(default\)\nnamespace stowline(.*\n)*"
                r"#pragma GCC visibility pop\n", text):
            yield f"{relative}: what it declares is not exported (#pragma GCC visibility)"


found = list(faults()) + list(faults_of_logging()) + list(faults_of_public_headers())
print("\n".join(found) if found else "every include follows the table")
sys.exit(1 if found else 0)
