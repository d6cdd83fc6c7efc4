"""What scripts/command_reference.py makes of the command's help, in the programs that read it.

    command_reference_test.py STOWLINE
"""

import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


def output(*words):
    run = subprocess.run(words, capture_output=True, text=True, check=False)
    if run.returncode != 0 or run.stderr:
        sys.exit(f"{words}: status {run.returncode}, {run.stderr or run.stdout}")
    return run.stdout


def expect(what, found, wanted):
    missing = [word for word in wanted if word not in found.split()]
    if missing:
        sys.exit(f"{what} does not offer {missing}: {found}")


def bash_offers(folder, *words):
    script = (f"source '{folder}/stowline.bash'; COMP_WORDS=({' '.join(words)}); "
              "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _stowline; echo \"${COMPREPLY[*]}\"")
    return output("bash", "-c", script)


def fish_offers(folder, line):
    return output("fish", "--no-config", "-c",
                  f"source '{folder}/stowline.fish'; complete -C '{line}'")


with tempfile.TemporaryDirectory() as folder:
    output(sys.executable, str(ROOT / "scripts/command_reference.py"), sys.argv[1],
           str(ROOT / "docs/man/stowline.1.in"), folder)
    page = output("groff", "-t", "-man", "-ww", "-Tascii", "-P-cbou", f"{folder}/stowline.1")
    for word in ("restore-info", "--bwlimit", "--password-stdin", "interrupted"):
        if word not in page.replace("-\n", "-"):
            sys.exit(f"the manual page does not tell of {word}")
    if "@" in page.replace("@example", "").replace("ann@", ""):
        sys.exit("the manual page has an unfilled place")
    expect("bash", bash_offers(folder, "stowline", "re"), ["report", "restore-info"])
    expect("bash", bash_offers(folder, "stowline", "uploads", "''"), ["list", "resume", "abandon"])
    expect("bash", bash_offers(folder, "stowline", "backup", "--register-with", "P"), ["ProtectFile"])
    expect("fish", fish_offers(folder, "stowline back"), ["backup"])
    expect("fish", fish_offers(folder, "stowline ls --sort "), ["Name", "Size", "Modified"])
    output("zsh", "-n", f"{folder}/_stowline")
    for name in ("stowline-devserver.1", "WebServiceCaller.1"):
        output("groff", "-t", "-man", "-ww", "-z", str(ROOT / "docs/man" / name))
print("manual pages and completions are as they should be")
