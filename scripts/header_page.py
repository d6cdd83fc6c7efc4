"""Writes docs/headers.md: what each public header is for, by the sentence that it begins with.

    header_page.py            writes it
    header_page.py --check    says whether it is as the headers say; exit status 1 when it is not
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).parent.parent
PAGE = ROOT / "docs/headers.md"
HEAD = """# The public headers

What a host program includes. Three to begin with:

1. `stowline/platform/desktop/Bundle.h` says where the settings and the helper program are;
2. `stowline/service/WebServiceBroker.h` has every request of a backup application to the service;
3. `stowline/backup/BackupRun.h` backs up a tree, with the index, the journal and the records of runs.

[Hosting](hosting.md) says how. `scripts/header_page.py` writes this page, by what each header begins with; a
test compares.
"""


def purpose(header: str) -> str:
    """The comment at a header's top, as far as its first sentence goes."""
    lines = []
    for line in (ROOT / header).read_text().splitlines():
        if not line.startswith("//"):
            break
        lines.append(line[2:].strip())
    text = " ".join(lines)
    end = re.search(r"\.(?= |$)(?! \()", text)
    return (text[:end.end()] if end else text).replace("|", "\\|")


def page() -> str:
    listed = re.findall(r"^ *(stowline/\S+\.h)$", (ROOT / "cmake/PublicHeaders.cmake").read_text(), re.MULTILINE)
    text, room = HEAD, None
    for header in listed:
        folder, _, name = header.rpartition("/")
        if folder != room:
            text += f"\n## {folder}\n\n| header | |\n|---|---|\n"
            room = folder
        text += f"| `{name}` | {purpose(header)} |\n"
    return text


if __name__ == "__main__":
    if sys.argv[1:] == ["--check"]:
        if PAGE.read_text() != page():
            sys.exit("docs/headers.md is not what the headers say. Please run: python3 scripts/header_page.py")
    else:
        PAGE.write_text(page())
