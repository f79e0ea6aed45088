#!/usr/bin/env python3
"""Writes docs/json.schema.json from the tables of docs/json.md:
    scripts/lib/json-schema.py            prints it
    scripts/lib/json-schema.py --check    whether the file is what would be printed"""

import json
import pathlib
import re
import sys

DOCUMENT, SCHEMA = pathlib.Path("docs/json.md"), pathlib.Path("docs/json.schema.json")
SIMPLE = {"text": {"type": "string"}, "integer": {"type": "integer"}, "boolean": {"type": "boolean"},
          "date": {"type": "string", "format": "date-time"}}


def rows(text):
    """Of the tables in a text, each as its columns."""
    found = [re.split(r" \| ?", row.strip("| ")) for row in re.findall(r"^\|.*\|$", text, re.M)]
    return [row for row in found if row[0].startswith("`")]


def singular(name, values):
    """The value that a plural means: "found paths" are of "found path"."""
    options = [name, name.removesuffix("s"), re.sub("ies$", "y", name), re.sub("es$", "", name)]
    return next(option for option in options if option in values or option in SIMPLE)


def schema_of(kind, values):
    if of := re.match("lists? of ", kind):
        return {"type": "array", "items": schema_of(kind[of.end():], values)}
    name = singular(kind, values)
    return SIMPLE.get(name) or {"$ref": "#/$defs/" + name.replace(" ", "-")}


head, *sections = DOCUMENT.read_text(encoding="utf-8").split("\n## ")
sections = {section.split("\n")[0]: section for section in sections}
values = set(sections)
definitions = {}
for name, section in sections.items():
    properties, required, parents = {}, [], re.findall(r"^All keys of an? ([a-z ]+?)(?:,|\.)? and", section, re.M)
    for key, kind, *meaning in rows(section):
        kind, *optional = kind.split(", ")
        properties[key.strip("`")] = {**schema_of(kind, values), "description": " | ".join(meaning)}
        if key == "`version`" and kind == "integer" and " | ".join(meaning).strip().isdigit():
            properties["version"]["const"] = int(" | ".join(meaning))
        if "optional" not in optional:
            required.append(key.strip("`"))
    definitions[name.replace(" ", "-")] = {"type": "object", "properties": properties, "required": sorted(required)}
    for parent in parents:
        definitions[name.replace(" ", "-")]["allOf"] = [schema_of(singular(parent, values), values)]
commands = {}
for names, kind, *_ in rows(head):
    for command in re.findall(r"`([^`]+)`", names):
        commands[command] = schema_of(kind.split(",")[0], values)
text = json.dumps({"$schema": "https://json-schema.org/draft/2020-12/schema", "$id": "urn:tidewrack:json:1", "title": "What tidewrack prints with --json",
                   "$comment": "Made from json.md by scripts/lib/json-schema.py.", "commands": commands,
                   "$defs": definitions}, indent=1, ensure_ascii=False) + "\n"
if "--check" in sys.argv:
    sys.exit(0 if SCHEMA.read_text(encoding="utf-8") == text else f"{SCHEMA} is not what {DOCUMENT} describes: run {sys.argv[0]} >{SCHEMA}")
print(text, end="")
