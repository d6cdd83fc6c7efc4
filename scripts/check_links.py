"""Looks whether every link between the pages of the tree leads somewhere, in the tree and once installed.

What is installed beside each other is INSTALLED (cmake/Install.cmake).
Prints a line for each link that leads nowhere; exit status 1 when there is one.
"""
import pathlib
import re
import subprocess
import sys

LINK = re.compile(r"\]\(([^)\s]+)\)")
INSTALLED = ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "docs/", "samples/", "tests/consumer/main.cpp",
             "tests/read_record.py", "tests/unseal_content.py", "tests/open_key_slots.py",
             "resources/WebServicesSettings.plist")


def anchors(text: str) -> set[str]:
    """The names that headings have, as the web pages of repositories make them."""
    names = set()
    for heading in re.findall(r"^#+ +(.+)$", text, re.MULTILINE):
        plain = re.sub(r"[^\w\- ]", "", heading.strip().lower())
        names.add(plain.replace(" ", "-"))
    return names


def without_code(text: str) -> str:
    return re.sub(r"```.*?```|`[^`\n]*`", "", text, flags=re.DOTALL)


def faults(root: pathlib.Path, pages: list[str]) -> list[str]:
    found = []
    for page in pages:
        text = (root / page).read_text()
        for target in LINK.findall(without_code(text)):
            if re.match(r"[a-z]+:", target):
                continue
            path, _, anchor = target.partition("#")
            place = ((root / page).parent / path).resolve() if path else (root / page).resolve()
            if not place.exists():
                found.append(f"{page}: {target} is not there")
                continue
            inside = str(place.relative_to(root.resolve())) + ("/" if place.is_dir() else "")
            if page.startswith(INSTALLED) and not inside.startswith(INSTALLED):
                found.append(f"{page}: {target} is not installed")
            elif anchor and place.suffix == ".md" and anchor not in anchors(place.read_text()):
                found.append(f"{page}: {target} has no such heading")
    return found


if __name__ == "__main__":
    top = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    listed = subprocess.run(["git", "-C", str(top), "ls-files", "--cached", "--others", "--exclude-standard",
                             "*.md"], capture_output=True, text=True, check=True).stdout.split()
    wrong = faults(top, listed)
    print("\n".join(wrong) if wrong else f"the links of {len(listed)} pages lead somewhere")
    sys.exit(1 if wrong else 0)
