"""What a check has found, and how it is shown: to people line by line, or to programs as JSON."""

import json
import unicodedata
from typing import NamedTuple

from quorvel.language import _

# Spelled so in the JSON object. A check that could not be made is never "ok".
OK = "ok"
WARNING = "warning"
FAULT = "fault"
UNCHECKED = "not checked"

EXIT_STATUS = {OK: 0, UNCHECKED: 0, WARNING: 1, FAULT: 2}


class Finding(NamedTuple):
    """`check` names the check for programs, by topic, and is never renamed; the rest is for people."""

    check: str
    level: str
    text: str
    cure: str = ""


def exit_status(findings):
    return max((EXIT_STATUS[finding.level] for finding in findings), default=0)


def width(text):
    """Columns of a terminal: Chinese characters take two."""
    return sum(2 if unicodedata.east_asian_width(character) in "WF" else 1 for character in text)


def as_line(finding):
    """The finding on one line, and its cure, if there is one, on another."""
    words = {OK: _("ok"), WARNING: _("warning"), FAULT: _("FAULT"), UNCHECKED: _("not checked")}
    column = max(map(width, words.values())) + 2
    word = words[finding.level]
    line = word + " " * (column - width(word)) + finding.text
    return line + "\n" + " " * column + "-> " + finding.cure if finding.cure else line


def summary(findings):
    count = {level: sum(finding.level == level for finding in findings) for level in EXIT_STATUS}
    return _("Faults: {faults}. Warnings: {warnings}. Not checked: {unchecked}. In order: {good}.").format(
        faults=count[FAULT], warnings=count[WARNING], unchecked=count[UNCHECKED], good=count[OK])


def as_json(findings, version):
    return json.dumps({"version": version, "exitStatus": exit_status(findings),
                       "checks": [finding._asdict() for finding in findings]},
                      indent=2, ensure_ascii=False)
