"""Web sites, and the functions of the service that their pages may call.

What a site is, the service's own code says: this asks the program beside the service for it.
"""

import json
import re
import subprocess
from pathlib import Path
from typing import NamedTuple

from quorvel.language import _

PROGRAM = Path(__file__).resolve().parents[2] / "bin" / "quorvel-settings"
# What would be no name in a line of the service INI file is left out.
NAME = r"[^\s\x00-\x1f,\[\]]+"
FUNCTIONS = re.compile(rf"{NAME}(?:[ ,]+{NAME})*")


class PolicyError(Exception):
    """What is wrong, in words for the administrator."""


class Site(NamedTuple):
    """A site by its origin, as the service spells it."""

    origin: str

    @property
    def pattern(self):
        """The spelling of the Chromium family."""
        return self.origin.replace("://*.", "://[*.]")

    @property
    def domain(self):
        """Firefox's."""
        return re.sub(r":\d+$", "", self.origin.partition("://")[2])

    @property
    def in_browsers(self):
        """Browsers put the question, which a policy spares the user, for https pages alone."""
        return self.origin.startswith("https:")


def ask_service(*arguments):
    """Returns what the service's own code tells."""
    outcome = subprocess.run([PROGRAM, *arguments], stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, check=False)
    try:
        return json.loads(outcome.stdout)
    except ValueError:
        raise PolicyError(_("{program} gives no answer; install the service again").format(
            program=PROGRAM))


def as_value(text):
    """A site as people and browsers' lists write it, in the manner of the service INI file."""
    text = text.replace("[*.]", "*.", 1).removesuffix("/")
    text = text if "://" in text else f"https://{text}"
    return text.encode("utf-8", "replace").replace(b"\0", b" ")


def find_sites(texts):
    """Returns a Site, or what is wrong, for each text."""
    answers = ask_service("--sites", *map(as_value, texts))["sites"] if texts else []
    return [Site(answer["origin"]) if "origin" in answer else answer["fault"] for answer in answers]


def parse_sites(texts):
    """Returns the Sites. Throws PolicyError for a text that is none."""
    sites = find_sites(texts)
    for text, site in zip(texts, sites):
        if not isinstance(site, Site):
            raise PolicyError(f"{text}: {site}")
    return sites


def parse_functions(text):
    """Returns the names with one blank between two."""
    if not FUNCTIONS.fullmatch(text):
        raise PolicyError(_("{text}: not the names of functions; write them with blanks between, "
                            "as in {example}").format(
            text=text, example='--functions "readcardbas cardpresent"'))
    return " ".join(re.split("[ ,]+", text))
