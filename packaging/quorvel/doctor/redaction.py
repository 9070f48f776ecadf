"""Takes out of a text what tells of people: see redact()."""

import ipaddress
import os
import pwd
import re
import socket

LOWEST_PERSON = 1000
HIGHEST_PERSON = 60000
HOME = re.compile(r"/home/[^/\s\"',:;)]+")
IPV4 = re.compile(r"\b(?:\d{1,3}\.){3}\d{1,3}\b")
IPV6 = re.compile(r"(?<![\w:.])[0-9a-fA-F]{0,4}(?::[0-9a-fA-F]{0,4}){2,7}(?![\w:.])")
HARDWARE = re.compile(r"\b(?:[0-9a-fA-F]{2}:){5}[0-9a-fA-F]{2}\b")
# As of persons, cards and telephones: times and ports are shorter.
LONG_NUMBER = re.compile(r"(?<![0-9A-Za-z])[0-9]{7,}[0-9Xx]?(?![0-9A-Za-z])")


def people():
    """Names that stand for a person at this machine: log-in names, and the words of full names."""
    names = {os.environ.get("SUDO_USER", ""), os.environ.get("USER", ""), os.environ.get("LOGNAME", "")}
    for entry in pwd.getpwall():
        if LOWEST_PERSON <= entry.pw_uid < HIGHEST_PERSON:
            names.add(entry.pw_name)
            names.update(entry.pw_gecos.split(",")[0].split())
    return {name for name in names if len(name) > 1 and name != "root"}


def is_own_address(text):
    """Loopback and wildcard addresses tell nothing."""
    try:
        address = ipaddress.ip_address(text)
    except ValueError:
        return True
    return address.is_loopback or address.is_unspecified


def hide_address(match):
    return match.group() if is_own_address(match.group()) else "<address>"


def redact(text):
    """The text without home directories' names, users' and the machine's names, addresses but those
    of the machine for itself, and numbers as long as those of persons or cards."""
    text = HOME.sub("/home/<user>", text)
    for names, label in ((people(), "<user>"), ({socket.gethostname()} - {"localhost"}, "<host>")):
        for name in sorted(names, key=len, reverse=True):
            text = re.sub(rf"(?<![\w]){re.escape(name)}(?![\w])", label, text)
    text = HARDWARE.sub("<address>", text)
    text = IPV4.sub(hide_address, text)
    text = IPV6.sub(hide_address, text)
    return LONG_NUMBER.sub("<number>", text)
