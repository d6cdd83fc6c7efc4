"""Changes one line at a time in a copy of the tree, builds, tests, and keeps the score.

    mutate.py TREE FOLDER COUNT SEED
    mutate.py TREE --by-hand FILE OLD NEW

A change that does not compile, or after which the tests' program is the same to the byte, is not
counted. A change is noticed when a test fails twice in a row; that no test failed but one took too
long is told apart, for a busy machine can do that too. The tests that stand nearest to the changed
file are asked first, then the others of its folder, then those of the folders that rest on it; only
what is asked is built.
"""

import hashlib
import os
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
SOURCES = ("*.cpp", "*.h")
# Files whose own lines hold no promise: what a program does before it hands on.
NEVER_CHANGED = re.compile(r"Test\.(cpp|h)$|/main\.cpp$")

# What notices a change in a folder: its own tests, then those of what rests on it.
MATTERS = {
    "stowline/platform": ["platform_tests", "platform_content_tests", "util_tests", "logging_tests",
                          "net_tests", "soap_tests", "call_tests", "tool_tests", "store_tests",
                          "logging_database_tests", "content_tests", "service_tests",
                          "devserver_tests", "injection_tests", "backup_tests"],
    "stowline/logging": ["logging_tests", "logging_database_tests", "injection_tests"],
    "stowline/branding": ["branding_tests"],
    "stowline/net": ["net_tests", "service_tests"],
    "stowline/util": ["util_tests", "store_tests", "service_tests"],
    "stowline/soap": ["soap_tests", "tool_tests", "service_tests"],
    "stowline/call": ["call_tests", "tool_tests", "service_tests"],
    "stowline/service": ["service_tests"],
    "stowline/backup": ["backup_tests", "endtoend_tests"],
    "stowline/tool": ["tool_tests", "service_tests"],
    "cli": ["cli_tests", "endtoend_tests"],
    "devserver": ["devserver_tests", "injection_tests"],
}
# Where only some suites of a program have to do with a folder.
ONLY = {
    ("stowline/backup", "endtoend_tests"): re.compile("Back|Restore|Record|Lost|Run|Uploads"),
    ("stowline/logging", "injection_tests"): re.compile("FileLogger|Thread"),
    ("devserver", "injection_tests"): re.compile("Registration"),
}
SUITE = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+)\s*,", re.MULTILINE)
# What becomes of a change.
NOTICED, HUNG, SURVIVED = "noticed", "too slow", "SURVIVED"
JOBS = str((os.cpu_count() or 1) + 1)


def unquoted(line, start):
    """Whether a place of a line is outside of texts and comments."""
    before = line[:start]
    return before.replace('\\"', "").count('"') % 2 == 0 and "//" not in before


def candidates(tree, folder):
    top = tree / folder
    found = [source for kind in SOURCES for source in top.rglob(kind)] if top.is_dir() else [top]
    for source in sorted(found):
        if NEVER_CHANGED.search(source.as_posix()):
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


class Tests:
    """The tests of a build, and which of them to ask about a file."""

    def __init__(self, tree):
        self.tree = tree
        self.build = tree / "build/plain"
        self.suites = {}
        self.digests = {}

    def program(self, target):
        return self.build / "tests" / target

    def make(self, target):
        return ran(["ninja", "-C", self.build, "-j", JOBS, target], 1800)

    def digest(self, target):
        """Of all that the target's tests run: its own program and those beside it."""
        digest = hashlib.sha256()
        programs = [self.program(target)]
        if target in ("endtoend_tests", "service_tests", "devserver_tests"):
            programs += [self.build / "bin" / name
                         for name in ("stowline", "WebServiceCaller", "stowline-devserver")]
        for program in programs:
            if program.exists():
                digest.update(program.read_bytes())
        return digest.digest()

    def know(self, target):
        """What the target is before anything is changed."""
        if target in self.suites:
            return
        if not self.make(target):
            sys.exit(f"{target} cannot be built before anything is changed.")
        listed = subprocess.run([self.program(target), "--gtest_list_tests"], capture_output=True,
                                text=True, check=True).stdout
        self.suites[target] = sorted({line.split(".")[0] for line in listed.splitlines()
                                      if line and not line.startswith((" ", "Running"))})
        self.digests[target] = self.digest(target)

    def near(self, source):
        """The suites of the test that stands beside a file, or whose name its name begins with."""
        beside = [test for test in source.parent.glob("*Test.cpp")
                  if source.stem.startswith(test.stem.removesuffix("Test"))]
        return {suite for test in beside for suite in SUITE.findall(test.read_text())}

    def fail(self, suites):
        """What one of them does, and does again when it is asked a second time: NOTICED, HUNG or
        SURVIVED."""
        if not suites:
            return SURVIVED
        names = "^(" + "|".join(sorted(re.escape(suite) for suite in suites)) + r")\."
        try:
            asked = subprocess.run(
                ["ctest", "--test-dir", self.build, "-R", names, "-j", JOBS, "--repeat",
                 "until-pass:2", "--stop-on-failure", "--timeout", "100"],
                capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=1200)
        except subprocess.TimeoutExpired:
            return HUNG
        if asked.returncode == 0:
            return SURVIVED
        ends = re.findall(r"^\s*\d+ - .* \((.*?)\)", asked.stdout, re.MULTILINE)
        return HUNG if ends and set(ends) <= {"Timeout", "Skipped"} else NOTICED

    def notice(self, relative):
        """What becomes of a change that was made to a file; absent when it is none."""
        folder, targets = next((folder, targets) for folder, targets in MATTERS.items()
                               if relative.startswith(folder + "/"))
        near = self.near(self.tree / relative)
        is_change = False
        for target in targets:
            if not self.make(target):
                return None
            if self.digest(target) == self.digests[target]:
                continue
            is_change = True
            only = ONLY.get((folder, target), re.compile(""))
            suites = {suite for suite in self.suites[target] if only.search(suite)}
            for asked in (suites & near, suites - near):
                if (verdict := self.fail(asked)) != SURVIVED:
                    return verdict
        return SURVIVED if is_change else None

    def know_all(self, relative):
        for folder, targets in MATTERS.items():
            if relative.startswith(folder) or folder.startswith(relative):
                for target in targets:
                    self.know(target)


def changed(tests, source, text):
    """What the tests say of a file with another text."""
    was = source.read_text()
    source.write_text(text)
    try:
        return tests.notice(source.relative_to(tests.tree).as_posix())
    finally:
        source.write_text(was)


def by_hand(tests, file, old, new):
    source = tests.tree / file
    text = source.read_text()
    if text.count(old) != 1:
        print(f'"{old}" stands {text.count(old)} times in {file}, not once.')
        return 1
    tests.know_all(file)
    verdict = changed(tests, source, text.replace(old, new))
    print(verdict or "does not compile, or changes nothing", file, old, "->", new)
    return 0


def sample(tests, folder, count, seed):
    folder = folder.rstrip("/")
    chosen = list(candidates(tests.tree, folder))
    if not chosen:
        print(f'There is nothing to change in "{folder}".')
        return 1
    tests.know_all(folder)
    random.Random(int(seed)).shuffle(chosen)
    verdicts = []
    survivors = []
    for source, number, kind, line in chosen:
        if len(verdicts) == int(count):
            break
        lines = source.read_text().splitlines(keepends=True)
        was = lines[number]
        lines[number] = line + "\n"
        verdict = changed(tests, source, "".join(lines))
        if verdict is None:
            continue
        verdicts.append(verdict)
        place = f"{source.relative_to(tests.tree).as_posix()}:{number + 1} ({kind})"
        print(f"{verdict:8} {place}", flush=True)
        if verdict == SURVIVED:
            survivors.append(f"{place}\n  - {was.strip()}\n  + {line.strip()}")
            print(f"  - {was.strip()}\n  + {line.strip()}", flush=True)
    counted = len(verdicts)
    noticed = counted - len(survivors)
    print(f"\n{noticed} of {counted} changes were noticed ({100 * noticed // max(counted, 1)} %), "
          f"{verdicts.count(HUNG)} of them by a test that took too long.")
    print("\n".join(survivors))
    return 0


def main(tree, first, *others):
    tests = Tests(pathlib.Path(tree).resolve())
    return by_hand(tests, *others) if first == "--by-hand" else sample(tests, first, *others)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
