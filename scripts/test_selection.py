"""Which test programs and suites are meant by names: a folder (service, platform/values), a source
(Base64Test, WebRequests.cpp) or a suite (Base64Decode). A source without a test of its name stands for
all tests of the test program that is nearest to it; one of the command for the end-to-end tests too. Prints the targets on one line and a regular
expression for ctest on the next; ends with 1 and a sentence when a name means nothing.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SUITE = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\((\w+)\s*,", re.MULTILINE)


def target_of(source):
    """The test program that a source belongs to: named where a CMakeLists.txt above it lists it."""
    for folder in source.parents:
        lists = folder / "CMakeLists.txt"
        if lists.is_file():
            relative = re.escape(source.relative_to(folder).as_posix())
            for name, body in re.findall(r"stowline_test\((\w+)\s+([^)]*)\)", lists.read_text()):
                if re.search(rf"(?:^|\s){relative}(?:\s|$)", body):
                    return name
        if folder == ROOT:
            return None
    return None


def meant_by(name, sources):
    wanted = name.strip("/").removesuffix(".cpp").removesuffix(".h").removesuffix("Test")
    found = [source for source in sources
             if f"/{wanted}/" in f"/{source.relative_to(ROOT).as_posix()}"
             or f"/{source.relative_to(ROOT).as_posix()}".endswith(f"/{wanted}Test.cpp")]
    if found:
        return {source: SUITE.findall(source.read_text()) for source in found}
    found = [source for source in sources if wanted in SUITE.findall(source.read_text())]
    if found:
        return {source: [wanted] for source in found}
    return around(wanted, sources)


def around(wanted, sources):
    """The tests of what the sources of a name are part of."""
    meant = set()
    for top in ("stowline", "cli", "devserver"):
        for untested in (ROOT / top).rglob("*.cpp"):
            if not f"/{untested.relative_to(ROOT).as_posix()}".endswith(f"/{wanted}.cpp"):
                continue
            nearest = next(([source for source in sources if folder in source.parents]
                            for folder in untested.parents
                            if any(folder in source.parents for source in sources)), [])
            targets = {target_of(source) for source in nearest} - {None}
            meant.update(source for source in sources if target_of(source) in targets or
                         (top == "cli" and "endtoend" in source.parts))
    return {source: SUITE.findall(source.read_text()) for source in sorted(meant)}


def main(names):
    sources = [source for top in ("stowline", "cli", "devserver", "tests")
               for source in sorted((ROOT / top).rglob("*Test.cpp"))]
    targets, suites = set(), set()
    for name in names:
        meant = {source: found for source, found in meant_by(name, sources).items()
                 if target_of(source)}
        if not meant:
            print(f'"{name}" is not a folder with tests, a source, or a suite.')
            return 1
        targets.update(target_of(source) for source in meant)
        suites.update(suite for found in meant.values() for suite in found)
    print(" ".join(sorted(targets)))
    # Some tests run a second time with a nursery, under names that begin so.
    print(rf"(^|/|^OfNursery\.)({'|'.join(sorted(suites))})\.")
    return 0


sys.exit(main(sys.argv[1:]))
