"""Writes what the stowline command's own help says as a manual page and as shell completions.

    command_reference.py PROGRAM TEMPLATE-OF-THE-PAGE FOLDER

Writes FOLDER/stowline.1, FOLDER/stowline.bash, FOLDER/_stowline and FOLDER/stowline.fish.
"""

import dataclasses
import pathlib
import re
import subprocess
import sys

FILE_OPTIONS = {"--bundle", "--config", "--password-file", "--answer-file", "--monitor-token-file",
                "--text", "--save"}


@dataclasses.dataclass
class Option:
    names: list
    takes: str  # what it takes, as the help shows it; empty for a flag
    text: str

    @property
    def choices(self):
        found = re.search(r"\{(.*)\}", self.takes)
        return found.group(1).split(",") if found else []


@dataclasses.dataclass
class Command:
    words: list
    summary: str = ""
    usage: str = ""
    options: list = dataclasses.field(default_factory=list)
    operands: list = dataclasses.field(default_factory=list)
    commands: list = dataclasses.field(default_factory=list)


def entries(lines):
    """Pairs of what stands left and its description, which may be on lines of its own."""
    found = []
    for line in lines:
        if re.match(r"  \S", line):
            parts = re.split(r" {2,}", line.strip(), maxsplit=1)
            found.append([parts[0], parts[1] if len(parts) > 1 else ""])
        elif found:
            found[-1][1] = f"{found[-1][1]} {line.strip()}".strip()
    return found


def help_of(program, words):
    run = subprocess.run([program, *words, "--help"], capture_output=True, text=True, check=True,
                         env={"HOME": "/nonexistent", "PATH": "/usr/bin:/bin"})
    return run.stdout


def read(program, words):
    text = help_of(program, words)
    head, *rest = re.split(r"^(Positionals|Options|Subcommands):$", text, flags=re.MULTILINE)
    command = Command(words)
    for line in filter(None, head.strip().splitlines()):
        if line.startswith("Usage: "):
            command.usage = line.removeprefix("Usage: ")
        else:
            command.summary = line
    for title, body in zip(rest[::2], rest[1::2]):
        for left, description in entries(body.splitlines()):
            if title == "Subcommands":
                command.commands.append(read(program, [*words, left]))
                continue
            names, _, takes = left.partition(" ")
            default = re.match(r"([^=]*)=(.*)", names)
            if default:  # --config=FILE
                names, takes = default.group(1), "FILE"
            takes = re.sub(r" ?(REQUIRED|\(Env:\S+\)|Excludes: .*)", "", takes)
            # Defaults that differ from machine to machine are told in the page.
            takes = re.sub(r"^TEXT=(?!\w+$).*|^TEXT=vm$", "TEXT", takes)
            if title == "Options":
                if names.startswith("--system"):
                    takes = "TEXT"
                command.options.append(Option(names.split(","), takes.strip(), description))
            else:
                command.operands.append(Option([names], takes.strip(), description))
    return command


def every(command):
    yield command
    for inner in command.commands:
        yield from every(inner)


# --- the manual page ---

def roff(text):
    return re.sub(r"^([.'])", r"\\&\1", text.replace("\\", "\\e").replace("-", "\\-"))


def value_name(option):
    kind = re.sub(r"[=:\[{ ].*", "", option.takes)
    names = {"TEXT": "text", "UINT": "number", "INT": "number", "FLOAT": "number"}
    return names.get(kind, kind.lower())


def page_of_option(option):
    names = ", ".join(f"\\fB{roff(name)}\\fR" for name in option.names)
    value = f" \\fI{value_name(option)}\\fR" if option.takes else ""
    lines = [".TP", names + value, roff(option.text) + "."]
    if option.choices:
        lines.append("One of " + ", ".join(f"\\fB{roff(choice)}\\fR" for choice in option.choices) + ".")
    default = re.search(r"=([\w.]+)$", option.takes)
    if default:
        lines.append(f"{roff(default.group(1))} unless given.")
    return lines


def page(command, template):
    common = [line for option in command.options for line in page_of_option(option)]
    commands = []
    seen = set()
    for inner in every(command):
        if not inner.words or inner.commands:
            continue
        operands = re.sub(r".*\[OPTIONS\] ?", "", inner.usage)
        commands += [".SS " + f"\\fB{roff(' '.join(inner.words))}\\fR {roff(operands)}".strip(),
                     roff(inner.summary) + "."]
        for option in inner.options:
            if option.names[-1] == "--help":
                continue
            if re.fullmatch(r"--[\w-]+-(stdin|file|command)", option.names[-1]) or \
                    option.names[-1] == "--username":
                seen.add(option.names[-1])
                continue  # told once, under SECRETS
            commands += page_of_option(option)
    missing = [name for name in seen if roff(name) not in template]
    if missing:
        sys.exit(f"the page's own text does not tell of {missing}")
    return template.replace("@COMMON@", "\n".join(common)).replace("@COMMANDS@", "\n".join(commands))


# --- completions ---

def bash(command):
    lines = ["# bash completion for stowline", "_stowline()", "{",
             "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command= i",
             "    for ((i = 1; i < COMP_CWORD; i++)); do",
             "        case \"$command ${COMP_WORDS[i]}\" in"]
    for inner in every(command):
        if inner.words:
            outer = " ".join(inner.words[:-1])
            lines.append(f"        \"{outer} {inner.words[-1]}\") command=\"{' '.join(inner.words)}\" ;;")
    lines += ["        esac", "    done", "    case $before in"]
    valued = {name: option for inner in every(command) for option in inner.options if option.takes
              for name in option.names}
    for name, option in sorted(valued.items()):
        if option.choices:
            lines.append(f"    {name}) COMPREPLY=($(compgen -W \"{' '.join(option.choices)}\" -- \"$word\")); return ;;")
        elif name in FILE_OPTIONS:
            lines.append(f"    {name}) COMPREPLY=($(compgen -f -- \"$word\")); return ;;")
        else:
            lines.append(f"    {name}) return ;;")
    lines += ["    esac", "    local words=", "    case $command in"]
    for inner in every(command):
        words = [name for option in inner.options for name in option.names]
        words += [sub.words[-1] for sub in inner.commands]
        lines.append(f"    \"{' '.join(inner.words)}\") words=\"{' '.join(words)}\" ;;")
    lines += ["    esac",
              "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))",
              "    [ ${#COMPREPLY[@]} -gt 0 ] || COMPREPLY=($(compgen -f -- \"$word\"))",
              "}", "complete -o filenames -F _stowline stowline", ""]
    return "\n".join(lines)


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def zsh(command):
    def described(name, text):
        return quoted(f"{name}[{text.replace('[', '(').replace(']', ')')}]")

    def arguments(inner):
        lines = []
        for option in inner.options:
            for name in option.names:
                action = ""
                if option.choices:
                    action = f":value:({' '.join(option.choices)})"
                elif name in FILE_OPTIONS:
                    action = ":file:_files"
                elif option.takes:
                    action = ":value: "
                lines.append(described(name, option.text)[:-1] + action + "'")
        return lines

    def function(inner):
        name = "_".join(["_stowline", *inner.words]).replace("-", "_")
        lines = [f"{name}() {{"]
        words = arguments(inner)
        if inner.commands:
            lines += ["  local line state", "  _arguments -C \\"]
            lines += [f"    {word} \\" for word in words]
            lines += ["    '1: :->command' '*::argument:->rest'", "  case $state in",
                      "  command) local -a commands; commands=("]
            lines += ["    " + quoted(f"{sub.words[-1]}:{sub.summary}") for sub in inner.commands]
            lines += ["  ); _describe command commands ;;", "  rest) case $line[1] in"]
            lines += [f"    {sub.words[-1]}) {'_'.join(['_stowline', *sub.words]).replace('-', '_')} ;;"
                      for sub in inner.commands]
            lines += ["  esac ;;", "  esac"]
        else:
            lines += ["  _arguments \\"] + [f"    {word} \\" for word in words] + ["    '*:file:_files'"]
        return lines + ["}", ""]

    lines = ["#compdef stowline", ""]
    for inner in every(command):
        lines += function(inner)
    return "\n".join([*lines, "_stowline \"$@\"", ""])


def fish(command):
    lines = ["# fish completion for stowline"]
    first = [inner.words[-1] for inner in command.commands]
    for inner in every(command):
        if not inner.words:
            condition = "__fish_use_subcommand"
        else:
            condition = f"__fish_seen_subcommand_from {inner.words[0]}"
            if len(inner.words) > 1:
                condition += f"; and __fish_seen_subcommand_from {inner.words[1]}"
        for sub in inner.commands:
            where = condition
            if inner.words:
                others = " ".join(other.words[-1] for other in inner.commands)
                where += f"; and not __fish_seen_subcommand_from {others}"
            lines.append(f"complete -c stowline -n {quoted(where)} -f -a {sub.words[-1]} -d {quoted(sub.summary)}")
        for option in inner.options:
            words = ["complete -c stowline"]
            if inner.words:
                words.append(f"-n {quoted(condition)}")
            for name in option.names:
                words.append(f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}")
            if option.choices:
                words.append(f"-x -a {quoted(' '.join(option.choices))}")
            elif option.takes:
                words.append("-r" if set(option.names) & FILE_OPTIONS else "-x")
            words.append(f"-d {quoted(option.text)}")
            lines.append(" ".join(words))
    assert first
    return "\n".join([*lines, ""])


def main():
    program, template, folder = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    command = read(program, [])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "stowline.1").write_text(page(command, template.read_text()))
    (folder / "stowline.bash").write_text(bash(command))
    (folder / "_stowline").write_text(zsh(command))
    (folder / "stowline.fish").write_text(fish(command))


main()
