#!/usr/bin/env python3
"""Writes the manual pages and the shells' completions of the programs that programs.json describes.

usage: generate_documentation.py DESCRIPTION VERSION FOLDER
"""

import json
import pathlib
import sys


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def tagged(section, pairs):
    if not pairs:
        return []
    lines = [f".SH {section}"]
    for term, text in pairs:
        lines += [".TP", f".B {roff(term)}", roff(text)]
    return lines


def usage_of(switch):
    return switch["name"] + (f" {switch['argument']}" if "argument" in switch else "")


def manual_page(program, version):
    name = program["name"]
    synopsis = " ".join(f"[{usage_of(switch)}]" for switch in program["switches"])
    lines = [
        f'.TH {name} 1 "" "{name} {version}" "Pelmar Cowork Watcher"',
        ".SH NAME",
        f"{roff(name)} \\- {roff(program['summary'])}",
        ".SH SYNOPSIS",
        f".B {roff(name)}",
        roff(synopsis),
        ".SH DESCRIPTION",
    ]
    for number, paragraph in enumerate(program["description"]):
        lines += ([".PP"] if number else []) + [roff(paragraph)]
    lines += tagged("OPTIONS", [(usage_of(switch), switch["help"]) for switch in program["switches"]])
    lines += tagged("EXIT STATUS", program["exit"])
    lines += tagged("ENVIRONMENT", program["environment"])
    lines += tagged("FILES", program["files"])
    lines += [".SH SEE ALSO", f".BR {roff(program['see'])} (1)"]
    return "\n".join(lines) + "\n"


def bash_completion(program):
    name = program["name"]
    function = "_" + name.replace("-", "_")
    names = " ".join(switch["name"] for switch in program["switches"])
    takes = {switch["name"]: switch["argument"] for switch in program["switches"] if "argument" in switch}
    files = 'COMPREPLY=($(compgen -f -- "$2"))'
    cases = "".join(
        f"    {switch}) {files if argument == 'FILE' else 'COMPREPLY=()'}; return ;;\n"
        for switch, argument in takes.items()
    )
    return (
        f"{function}() {{\n"
        + (f"  case $3 in\n{cases}  esac\n" if cases else "")
        + f"  COMPREPLY=($(compgen -W '{names}' -- \"$2\"))\n"
        f"}}\n"
        f"complete -o filenames -F {function} {name}\n"
    )


def zsh_completion(program):
    lines = [f"#compdef {program['name']}", "", "_arguments \\"]
    for switch in program["switches"]:
        argument = switch.get("argument")
        value = {None: "", "FILE": ":file:_files", "SECONDS": ":seconds: "}[argument]
        lines.append(f"  '{switch['name']}[{switch['help']}]{value}' \\")
    lines[-1] = lines[-1].removesuffix(" \\")
    return "\n".join(lines) + "\n"


def fish_completion(program):
    lines = [f"complete -c {program['name']} -f"]
    for switch in program["switches"]:
        value = {None: "", "FILE": " -r -F", "SECONDS": " -x"}[switch.get("argument")]
        lines.append(f"complete -c {program['name']} -l {switch['name'][2:]}{value} -d '{switch['help']}'")
    return "\n".join(lines) + "\n"


def main(description, version, folder):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for program in json.loads(pathlib.Path(description).read_text(encoding="utf-8")):
        name = program["name"]
        (folder / f"{name}.1").write_text(manual_page(program, version), encoding="utf-8")
        (folder / f"{name}.bash").write_text(bash_completion(program), encoding="utf-8")
        (folder / f"_{name}").write_text(zsh_completion(program), encoding="utf-8")
        (folder / f"{name}.fish").write_text(fish_completion(program), encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
