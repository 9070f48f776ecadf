"""Web sites, and the functions of the service that their pages may call."""

import ipaddress
import re
from typing import NamedTuple

from quorvel.language import _

# A host, with "[*.]" or "*." in front for all names below it, and a port.
SITE = re.compile(r"(?:(https?)://)?(\[\*\.\]|\*\.)?([a-z0-9.-]+)(?::([0-9]{1,5}))?/?")
HOST_LABEL = re.compile(r"[a-z0-9](?:[a-z0-9-]{0,61}[a-z0-9])?")
LONGEST_HOST = 253
LARGEST_PORT = 65535
DEFAULT_PORTS = {"https": 443, "http": 80}
# What would be no name in a line of the service INI file is left out.
NAME = r"[^\s\x00-\x1f,\[\]]+"
FUNCTIONS = re.compile(rf"{NAME}(?:[ ,]+{NAME})*")


class PolicyError(Exception):
    """What is wrong, in words for the administrator."""


class Site(NamedTuple):
    """A site in the spelling of each that asks for it."""

    origin: str   # the service's
    pattern: str  # the Chromium family's
    domain: str   # Firefox's

    @property
    def in_browsers(self):
        """Browsers put the question, which a policy spares the user, for https pages alone."""
        return self.origin.startswith("https:")


def is_host(host, with_names_below):
    """Tells whether a browser can ever see the host: a DNS name, or an IPv4 address by itself."""
    labels = host.split(".")
    if len(host) > LONGEST_HOST or not all(HOST_LABEL.fullmatch(label) for label in labels):
        return False
    if not labels[-1].isdigit():
        return True
    try:
        ipaddress.IPv4Address(host)
    except ValueError:
        return False
    return not with_names_below


def parse_site(text):
    match = SITE.fullmatch(text.lower())
    if not match:
        raise PolicyError(_("{text}: not a site; write https://host, https://host:port or "
                            "https://[*.]domain, without a path").format(text=text))
    scheme, below, host, port = match.groups()
    if not is_host(host, below):
        raise PolicyError(_("{text}: {host} is not the name of a host or an IPv4 address").format(
            text=text, host=host))
    if port and not 1 <= int(port) <= LARGEST_PORT:
        raise PolicyError(_("{text}: a port is a number from 1 to {largest}").format(
            text=text, largest=LARGEST_PORT))
    scheme = scheme or "https"
    port_text = f":{int(port)}" if port else ""
    origin_port = "" if port and int(port) == DEFAULT_PORTS[scheme] else port_text
    return Site(f"{scheme}://{'*.' if below else ''}{host}{origin_port}",
                f"{scheme}://{'[*.]' if below else ''}{host}{port_text}",
                f"*.{host}" if below else host)


def parse_functions(text):
    """Returns the names with one blank between two."""
    if not FUNCTIONS.fullmatch(text):
        raise PolicyError(_("{text}: not the names of functions; write them with blanks between, "
                            "as in {example}").format(
            text=text, example='--functions "readcardbas cardpresent"'))
    return " ".join(re.split("[ ,]+", text))
