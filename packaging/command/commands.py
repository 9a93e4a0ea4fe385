"""What the commands take, read from the parser of the command line itself."""

from __future__ import annotations

import argparse
import re
from typing import NamedTuple

from tagbridge.cli.parser import make_parser

PROGRAM = "tagbridge"


class Argument(NamedTuple):
    """An option, or a positional argument."""

    names: tuple[str, ...]  #: of an option
    value: str              #: what stands for the value in the usage; empty for an option without
    words: tuple[str, ...]  #: what the value may be, as far as that is known
    repeats: bool
    about: str

    @property
    def is_file(self) -> bool:
        """Whether a file name can be given."""
        return not self.words and (not self.names or self.value.startswith("OUT"))


class Command(NamedTuple):
    """A command, or the program itself."""

    name: str  #: empty for the program
    usage: str
    about: str
    example: str
    arguments: tuple[Argument, ...]

    @property
    def options(self) -> list[Argument]:
        """Those of the arguments that have a name."""
        return [argument for argument in self.arguments if argument.names]

    @property
    def positionals(self) -> list[Argument]:
        """The others, in order."""
        return [argument for argument in self.arguments if not argument.names]


def program() -> tuple[Command, list[Command]]:
    """Return the program and its commands."""
    parser = make_parser()
    [group] = [action for action in parser._actions
               if isinstance(action, argparse._SubParsersAction)]
    return _command("", parser), [_command(name, made) for name, made in group.choices.items()]


def _command(name: str, parser: argparse.ArgumentParser) -> Command:
    usage = re.sub(r"\s+", " ", parser.format_usage().removeprefix("usage: ")).strip()
    return Command(
        name, usage, parser.description or "", (parser.epilog or "").removeprefix("example: "),
        tuple(_argument(action) for action in parser._actions
              if not isinstance(action, argparse._SubParsersAction)))


def _argument(action: argparse.Action) -> Argument:
    completer = getattr(action, "completer", None)
    words = completer() if completer else action.choices or ()
    value = "" if action.nargs == 0 else str(action.metavar or f"{{{','.join(words)}}}")
    return Argument(tuple(action.option_strings), value, tuple(map(str, words)),
                    action.nargs == "+", action.help or "")
