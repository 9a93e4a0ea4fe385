"""Completion of the command line in bash, zsh and fish. It does not start the program."""

from __future__ import annotations

from collections.abc import Iterator

from commands import PROGRAM, Argument, Command, program


def bash() -> str:
    """Return what bash-completion loads."""
    whole, commands = program()
    cases = "\n".join(_bash_case(command) for command in commands)
    words = " ".join([*(command.name for command in commands), *_names(whole)])
    return f"""\
# Completion of {PROGRAM} in bash. Made from the program's own parser.
_{PROGRAM}() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}}
  local options='' valued=' ' values='' places=() place=0 index
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W '{words}' -- "$current")
    return
  fi
  case ${{COMP_WORDS[1]}} in
{cases}
    *) return ;;
  esac
  if [[ $valued == *" $previous "* ]]; then
    case ${{COMP_WORDS[1]}}:$previous in
{_bash_values(commands)}
      *) compopt +o default; return ;;
    esac
  elif [[ $current == -* ]]; then
    values=$options
  else
    for ((index = 2; index < COMP_CWORD; index++)); do
      [[ ${{COMP_WORDS[index]}} == -* || $valued == *" ${{COMP_WORDS[index-1]}} "* ]] || ((++place))
    done
    values=${{places[place]:-}}
  fi
  # Without words the names of files are completed.
  [[ -z $values ]] || mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
}}
complete -o default -F _{PROGRAM} {PROGRAM}
"""


def _bash_case(command: Command) -> str:
    places = "".join(f" [{place}]='{' '.join(argument.words)}'"
                     for place, argument in enumerate(command.positionals) if argument.words)
    return (f"    {command.name}) options='{' '.join(_names(command))}'"
            f" valued=' {' '.join(_names(command, valued=True))} ' places=({places.strip()}) ;;")


def _bash_values(commands: list[Command]) -> str:
    lines = []
    for command in commands:
        for option in command.options:
            pattern = "|".join(f"{command.name}:{name}" for name in option.names)
            if option.words:
                lines.append(f"      {pattern}) values='{' '.join(option.words)}' ;;")
            elif option.value and option.is_file:
                lines.append(f"      {pattern}) ;;")
    return "\n".join(lines)


def fish() -> str:
    """Return what fish loads."""
    whole, commands = program()
    lines = [f"# Completion of {PROGRAM} in fish. Made from the program's own parser."]
    lines += (f"complete -c {PROGRAM} -n __fish_use_subcommand {part}" for part in
              [*(f"-f -a {command.name} -d {_quoted(command.about)}" for command in commands),
               *map(_fish_option, whole.options)])
    for command in commands:
        when = f"complete -c {PROGRAM} -n '__fish_seen_subcommand_from {command.name}"
        lines += (f"{when}' {_fish_option(option)}" for option in command.options)
        lines += (f"{when}; and test (count (commandline -opc)) -eq {place + 2}' -f"
                  f" -a {_quoted(' '.join(argument.words))}"
                  for place, argument in enumerate(command.positionals) if argument.words)
    return "\n".join(lines) + "\n"


def _fish_option(option: Argument) -> str:
    names = " ".join(f"-l {name[2:]}" if name.startswith("--") else f"-s {name[1:]}"
                     for name in option.names)
    value = "" if not option.value else " -r" if option.is_file else " -x"
    words = f" -a {_quoted(' '.join(option.words))}" if option.words else ""
    return f"{names}{value}{words} -d {_quoted(option.about)}"


def zsh() -> str:
    """Return what zsh loads from its fpath."""
    whole, commands = program()
    listed = " ".join(_quoted(f"{command.name}:{command.about}") for command in commands)
    cases = "\n".join(
        f"  {command.name}) _arguments -s {' '.join(_zsh_specifications(command))} ;;"
        for command in commands)
    return f"""\
#compdef {PROGRAM}
# Completion of {PROGRAM} in zsh. Made from the program's own parser.
local -a commands=({listed})
if ((CURRENT == 2)); then
  if [[ $PREFIX == -* ]]; then compadd -- {' '.join(_names(whole))}
  else _describe command commands; fi
  return
fi
shift words
((CURRENT--))
case $words[1] in
{cases}
esac
"""


def _zsh_specifications(command: Command) -> Iterator[str]:
    for option in command.options:
        value = f":{option.value}:{_zsh_action(option)}" if option.value else ""
        about = option.about.replace("[", "(").replace("]", ")").replace(":", ";")
        for name in option.names:
            yield _quoted(f"{name}[{about}]{value.replace('R0:R1,C0:C1', 'region')}")
    for place, argument in enumerate(command.positionals, start=1):
        which = "*" if argument.repeats else str(place)
        yield _quoted(f"{which}:{argument.value}:{_zsh_action(argument)}")


def _zsh_action(argument: Argument) -> str:
    return f"({' '.join(argument.words)})" if argument.words else "_files" if argument.is_file else " "


def _names(command: Command, *, valued: bool = False) -> Iterator[str]:
    for option in command.options:
        if option.value or not valued:
            yield from option.names


def _quoted(text: str) -> str:
    return "'" + text.replace("'", "") + "'"
