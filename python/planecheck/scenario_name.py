"""The `name:` of a scenario file, read from its header without running it (for test names)."""
from __future__ import annotations

import json
import re
import unicodedata
from pathlib import Path
from typing import Optional

# Escapes that keep a name on one line and out of pytest's `::` separator; a backslash is escaped
# too, so the escaped name reads back to one name only.
NODE_ID_ESCAPES = {"\\": "\\\\", "\n": "\\n", "\r": "\\r", "\t": "\\t"}
LINE_BREAKING = {"Cc", "Cs", "Zl", "Zp"}  # controls, lone surrogates, line and paragraph separators
YAML_NAME = re.compile(r"""name:[ \t]*(?P<value>"(?:[^"\\]|\\.)*"|'(?:[^']|'')*'|.*?)[ \t]*(?:[ \t]#.*)?$""")
HEADER_LINES = 200


def _yaml_scalar(value: str) -> Optional[str]:
    if len(value) >= 2 and value[0] == value[-1] == '"':
        try:
            return json.loads(value)
        except json.JSONDecodeError:
            return None
    if len(value) >= 2 and value[0] == value[-1] == "'":
        return value[1:-1].replace("''", "'")
    # Block scalars, flow collections, anchors and aliases are left to the run to read.
    return value if value and value[0] not in "|>[{&*!" else None


def _yaml_name(path: Path) -> Optional[str]:
    with path.open(encoding="utf-8", errors="replace") as text:
        for _, line in zip(range(HEADER_LINES), text):
            if line.startswith("steps:"):
                break
            found = YAML_NAME.match(line.rstrip("\r\n"))
            if found:
                return _yaml_scalar(found["value"])
    return None


def _json_name(path: Path, first_line_only: bool) -> Optional[str]:
    with path.open(encoding="utf-8", errors="replace") as text:
        if first_line_only:
            header = next((line for line in text if line.strip()), "")
        else:
            header = text.read()
    try:
        document = json.loads(header)
    except json.JSONDecodeError:
        return None
    name = document.get("name") if isinstance(document, dict) else None
    return name if isinstance(name, str) else None


def scenario_name(path: Path) -> Optional[str]:
    """The scenario's name, or None when it has none or the header cannot be read here; a file
    whose header cannot be read is reported when it runs."""
    try:
        if path.suffix == ".jsonl":
            return _json_name(path, first_line_only=True)
        if path.suffix == ".json":
            return _json_name(path, first_line_only=False)
        return _yaml_name(path)
    except OSError:
        return None


def _node_id_char(char: str, previous: str) -> str:
    if char in NODE_ID_ESCAPES:
        return NODE_ID_ESCAPES[char]
    if char == ":" and previous == ":":
        return "\\:"
    if unicodedata.category(char) in LINE_BREAKING:
        code = ord(char)
        return f"\\x{code:02x}" if code <= 0xFF else f"\\u{code:04x}"
    return char


def node_id_part(name: str) -> str:
    """The name as the last part of a pytest node id, which pytest prints and reads back: with no
    `::` (each colon that follows a colon is `\\:`) and no line break (`\\n`, `\\xNN`, ...)."""
    return "".join(_node_id_char(char, previous) for previous, char in zip(" " + name, name))
