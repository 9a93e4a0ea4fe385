"""Manual pages: one of the program, one of each command."""

from __future__ import annotations

import re
from collections.abc import Iterator

import tagbridge
from commands import PROGRAM, Argument, Command, program

_STATUS = (("0", "All went well."), ("1", "An error, said in one line on standard error; for verify, "
           "a block that cannot be decoded; for diff, a difference."),
           ("2", "Wrong usage."), ("130", "An interrupt."))


def pages() -> Iterator[tuple[str, str]]:
    """Yield the name and the text of each page."""
    whole, commands = program()
    yield f"{PROGRAM}.1", _page(whole, commands)
    for command in commands:
        yield f"{PROGRAM}-{command.name}.1", _page(command, [])


def escaped(text: str) -> str:
    """Return text as roff takes it."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
    return re.sub(r"^\.", r"\\&.", text, flags=re.MULTILINE)


def _page(command: Command, commands: list[Command]) -> str:
    title = "-".join(filter(None, [PROGRAM, command.name]))
    about = command.about.rstrip(".")
    lines = [
        f'.TH {title.upper()} 1 "" "tagbridge {tagbridge.__version__}" "User Commands"',
        ".SH NAME", escaped(title).replace("\\-", "-") + f" \\- {escaped(_lowered(about))}",
        ".SH SYNOPSIS", f".B {escaped(command.usage)}",
        ".SH DESCRIPTION", f"{escaped(about)}.",
        *_commands(commands), *_arguments(command),
        ".SH EXIT STATUS", *(line for status, words in _STATUS
                             for line in (".TP", f".B {status}", escaped(words))),
        ".SH EXAMPLES", ".nf", ".RS", escaped(command.example), ".RE", ".fi",
        ".SH SEE ALSO", _see_also(command, commands)]
    return "\n".join(lines) + "\n"


def _lowered(text: str) -> str:
    return text[:1].lower() + text[1:]


def _commands(commands: list[Command]) -> Iterator[str]:
    if commands:
        yield ".SH COMMANDS"
    for command in commands:
        yield from (".TP", f".BR {PROGRAM}\\-{command.name} (1)", escaped(command.about))


def _arguments(command: Command) -> Iterator[str]:
    yield ".SH OPTIONS"
    for argument in [*command.positionals, *command.options]:
        yield from (".TP", _heading(argument), escaped(argument.about or "\\&"))


def _heading(argument: Argument) -> str:
    if not argument.names:
        return f".I {escaped(argument.value)}{' ...' if argument.repeats else ''}"
    names = ", ".join(f"\\fB{escaped(name)}\\fR" for name in argument.names)
    return f"{names} \\fI{escaped(argument.value)}\\fR" if argument.value else names


def _see_also(command: Command, commands: list[Command]) -> str:
    others = [f"\\-{other.name}" for other in commands] or [""]
    return ",\n".join(f".BR {PROGRAM}{other} (1)" for other in others)
