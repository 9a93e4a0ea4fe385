"""Prints docs/errors.md, the list of all messages, from the catalog: ./dev docs"""

import tagbridge

HEAD = """\
# Errors and warnings

This page is generated from the message catalog by `./dev docs`; edit the catalog, not the page.
`{0}`, `{1}` stand for the arguments, in the order in which `Error.arguments` has them. Identifiers
begin with the group, `KORVAL:pictoria:Tiff:` if none is named. Their spelling, irregular capitals
included, is part of the interface.
"""
GROUP = "KORVAL:pictoria:"


def row(entry: tagbridge.CatalogEntry) -> str:
    identifier = entry.identifier.removeprefix(GROUP).removeprefix("Tiff:")
    cells = [f"`{identifier}`", entry.text, entry.arguments or "none", entry.when]
    return "| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |"


def table(title: str, entries: list[tagbridge.CatalogEntry]) -> str:
    head = [f"## {title}", "", "| identifier | text | arguments | when |", "|---|---|---|---|"]
    return "\n".join([*head, *map(row, entries)]) + "\n"


def page() -> str:
    entries = tagbridge.catalog()
    errors = [entry for entry in entries if not entry.warning]
    warnings = [entry for entry in entries if entry.warning]
    return "\n".join([HEAD, table(f"Errors ({len(errors)})", errors),
                      table(f"Warnings ({len(warnings)})", warnings)])


if __name__ == "__main__":
    print(page(), end="")
