"""The page of the Python package, from its docstrings."""

from __future__ import annotations

import enum
import inspect
import re
from collections.abc import Iterator
from typing import Any

import tagbridge

# What is used most comes first.
_FIRST = ["open", "imread", "imwrite", "call", "catalog", "File", "Directory", "Tags", "Block", "Error"]
_FIELD = re.compile(r"^:(param|raises) (\S+): ", re.MULTILINE)


def page() -> str:
    """Return every public name with what it is."""
    names = sorted((name for name in tagbridge.__all__ if name[0] != "_"),
                   key=lambda name: _FIRST.index(name) if name in _FIRST else len(_FIRST))
    things = [(name, getattr(tagbridge, name)) for name in names]
    kinds = {
        "Functions": [row for row in things if not inspect.isclass(row[1])],
        "Classes": [row for row in things if inspect.isclass(row[1])
                    and not issubclass(row[1], (Exception, enum.Enum))],
        "Exceptions and warnings": [row for row in things if inspect.isclass(row[1])
                                    and issubclass(row[1], Exception)],
        "Enumerations": [row for row in things if inspect.isclass(row[1])
                         and issubclass(row[1], enum.Enum)],
    }
    lines = ["# Python, name by name", "", text(inspect.getdoc(tagbridge) or "")]
    for title, rows in kinds.items():
        lines += ["", f"## {title}"]
        for name, thing in rows:
            lines += ["", f"### {name}", "", *_described(name, thing)]
    return "\n".join(lines) + "\n"


def _described(name: str, thing: Any) -> Iterator[str]:
    if not inspect.isclass(thing):
        yield from (*_signature(name, thing), "", text(_words(thing)))
        return
    yield text(_words(thing))
    if issubclass(thing, enum.Enum):
        yield from ("", "| member | number |", "|---|---|",
                    *(f"| `{member.name}` | {member.value} |" for member in thing))
        return
    for member, value in sorted(vars(thing).items()):
        if member.startswith("_"):
            continue
        if isinstance(value, property):
            yield from ("", f"#### {name}.{member}", "", text(inspect.getdoc(value) or ""))
        elif inspect.isfunction(value):
            yield from ("", f"#### {name}.{member}()", "", *_signature(member, value), "",
                        text(inspect.getdoc(value) or ""))


def _words(thing: Any) -> str:
    """The docstring; what the extension has begins with a line of types."""
    words = inspect.getdoc(thing) or ""
    return words.partition("\n\n")[2] if re.match(r"\w+\(.*\) -> ", words) else words


def _signature(name: str, function: Any) -> list[str]:
    try:
        found = inspect.signature(function)
    except ValueError:
        shown = re.sub(r" -> .*|: \w+", "", (function.__doc__ or name).splitlines()[0])
    else:
        parameters = [parameter.replace(annotation=inspect.Parameter.empty)
                      for parameter in found.parameters.values() if parameter.name != "self"]
        shown = name + str(found.replace(parameters=parameters,
                                         return_annotation=inspect.Signature.empty))
    return ["```text", shown, "```"]


def text(words: str) -> str:
    """Return a docstring as Markdown: fields as a list, roles and literals as code."""
    words = re.sub(r":(?:func|class):`(\w+)`", r"`\1`", words).replace("``", "`")
    words = re.sub(r"::\n\n((?:(?:    .*)?\n?)+)", _code, words)
    body, *fields = re.split(r"^(?=:(?:param|raises) )", words, flags=re.MULTILINE)
    rows = [_FIELD.sub(lambda found: f"- {'raises ' if found[1] == 'raises' else ''}`{found[2]}`: ",
                       re.sub(r"\s*\n\s*", " ", field.strip())) for field in fields]
    return "\n".join([body.rstrip(), *([""] if rows else []), *rows]).rstrip()


def _code(found: re.Match[str]) -> str:
    block = "\n".join(line.removeprefix("    ") for line in found[1].rstrip().splitlines())
    return f":\n\n```python\n{block}\n```\n\n"
