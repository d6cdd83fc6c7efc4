"""Changes one line at a time in a copy of the tree, builds, tests, and keeps the score.

    mutate.py TREE FOLDER COUNT SEED

A change that does not compile, or changes no program, is not counted. A change is noticed when a
test fails; the unit tests of the folder are asked first, then the end-to-end tests.
"""

import pathlib
import random
import re
import subprocess
import sys

# (what it is called, what is found, what takes its place); the place is given by the first group.
CHANGES = [
    ("bound", re.compile(r"(?<![<>=!-])( < | <= | > | >= )(?![<>=])"),
     {" < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > "}),
    ("equality", re.compile(r"( == | != )"), {" == ": " != ", " != ": " == "}),
    ("conjunction", re.compile(r"( && | \|\| )"), {" && ": " || ", " || ": " && "}),
    ("sum", re.compile(r"(?<=[\w)\]])( \+ | - )(?=[\w(])"), {" + ": " - ", " - ": " + "}),
    ("negation", re.compile(r"((?<=if \()!|(?<=return )!)"), {"!": ""}),
    ("answer", re.compile(r"\breturn (true|false);"), {"true": "false", "false": "true"}),
    ("constant", re.compile(r"(?<![\w.\"'])(\d+)(?![\w.\"'])"), lambda text: str(int(text) + 1)),
    ("call", re.compile(r"^\s+((?!return|throw|delete|using|static|const|auto|co_)[\w:.>()\[\]-]+\([^;{}]*\);)$"),
     lambda text: ";"),
    ("condition", re.compile(r"\bif \(([^();]+(?:\([^()]*\))?)\)"), lambda text: f"!({text})"),
    ("arguments", re.compile(r"\(((?:\w+), (?:\w+))\)"), lambda text: ", ".join(reversed(text.split(", ")))),
]
SKIPPED = re.compile(r"^\s*(//|///|#|static_assert|using |namespace |template|STOWLINE_LOG_)|_assert|\[\[noreturn")

# What notices a change in a folder: its own tests first, then those that see the whole.
UNIT_TESTS = {
    "stowline/platform": ["platform_tests"], "stowline/logging": ["logging_tests", "logging_database_tests"],
    "stowline/branding": ["branding_tests"], "stowline/net": ["net_tests"],
    "stowline/util": ["util_tests", "store_tests"], "stowline/soap": ["soap_tests"],
    "stowline/call": ["call_tests"], "stowline/service": ["service_tests"],
    "stowline/backup": ["backup_tests"], "stowline/tool": ["tool_tests"],
    "cli": ["cli_tests"], "devserver": ["devserver_tests"],
}
WHOLE = ["endtoend_tests"]


def unquoted(line, start):
    """Whether a place of a line is outside of texts and comments."""
    before = line[:start]
    return before.replace('\\"', "").count('"') % 2 == 0 and "//" not in before


def candidates(tree, folder):
    for source in sorted((tree / folder).rglob("*.cpp")):
        if source.name.endswith("Test.cpp") or source.name == "main.cpp":
            continue
        for number, line in enumerate(source.read_text().splitlines()):
            if SKIPPED.search(line):
                continue
            for kind, pattern, by in CHANGES:
                for match in pattern.finditer(line):
                    old = match.group(1)
                    new = by(old) if callable(by) else by[old]
                    if unquoted(line, match.start(1)):
                        yield source, number, kind, line[:match.start(1)] + new + line[match.end(1):]


def ran(command, seconds):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              stdin=subprocess.DEVNULL, timeout=seconds).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def tests_of(build, target, known={}):
    """The names that ctest knows the tests of a program by."""
    if target not in known:
        listed = subprocess.run([build / "tests" / target, "--gtest_list_tests"], capture_output=True,
                                text=True, check=True).stdout
        suites = sorted({line.split(".")[0] for line in listed.splitlines()
                         if line and not line.startswith((" ", "Running"))})
        known[target] = "^(" + "|".join(re.escape(suite) for suite in suites) + r")\."
    return known[target]


def is_noticed(build, relative):
    unit = next(tests for folder, tests in UNIT_TESTS.items() if relative.startswith(folder + "/"))
    for target in unit + WHOLE:
        if not (build / "tests" / target).exists():
            continue
        if not ran(["ninja", "-C", build, target], 1800):
            return None
        if not ran(["ctest", "--test-dir", build, "-R", tests_of(build, target), "-j3",
                    "--stop-on-failure", "--timeout", "120"], 1800):
            return True
    return False


def main(tree, folder, count, seed):
    tree = pathlib.Path(tree)
    build = tree / "build/plain"
    chosen = list(candidates(tree, folder))
    if not chosen:
        print(f'There is nothing to change in "{folder}".')
        return 1
    random.Random(int(seed)).shuffle(chosen)
    counted = noticed = 0
    survivors = []
    for source, number, kind, line in chosen:
        if counted == int(count):
            break
        text = source.read_text()
        lines = text.splitlines(keepends=True)
        was = lines[number]
        relative = source.relative_to(tree).as_posix()
        lines[number] = line + "\n"
        source.write_text("".join(lines))
        try:
            verdict = is_noticed(build, relative)
        finally:
            source.write_text(text)
        if verdict is None:
            continue
        counted += 1
        noticed += verdict
        print(f"{'noticed ' if verdict else 'SURVIVED'} {relative}:{number + 1} ({kind})", flush=True)
        if not verdict:
            survivors.append(f"{relative}:{number + 1} ({kind})\n  - {was.strip()}\n  + {line.strip()}")
    print(f"\n{noticed} of {counted} changes were noticed ({100 * noticed // max(counted, 1)} %).")
    print("\n".join(survivors))
    return 0


sys.exit(main(*sys.argv[1:]))
