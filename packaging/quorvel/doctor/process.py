"""The running service's process, and who listens on its port."""

import os
import socket
import struct
import time
from pathlib import Path
from typing import NamedTuple, Optional

from quorvel.doctor.machine import user_name
from quorvel.listening import listening_sockets


class Process(NamedTuple):
    """A running service. Its options are those that it was started with."""

    number: int
    options: list
    user: int
    started: float  # seconds since 1970

    @property
    def with_tls(self):
        return any(option.startswith("-s") for option in self.options)

    @property
    def folder(self):
        """Its working directory, or None where the kernel does not tell."""
        try:
            return Path(os.readlink(f"/proc/{self.number}/cwd"))
        except OSError:
            return None


class Listener(NamedTuple):
    """A listening socket; without a process, its owner may not be looked at."""

    address: str
    user: int
    process: Optional[int]
    name: str


def start_of(text):
    """The time in the text of a process's file "stat", which counts from the machine's start."""
    ticks = int(text.rpartition(")")[2].split()[19])
    return time.time() - time.clock_gettime(time.CLOCK_BOOTTIME) + ticks / os.sysconf("SC_CLK_TCK")


def is_program(folder, word, program):
    """Whether the process of that folder in /proc, started under the name `word`, runs the program."""
    try:
        return Path(os.readlink(folder / "exe")) == program
    except OSError:
        # Another user's: the name that it goes by has to do.
        return word == str(program) or not word.startswith("/")


def read_process(number, program):
    folder = Path("/proc") / str(number)
    try:
        words = (folder / "cmdline").read_bytes().decode("utf-8", "replace").split("\0")[:-1]
        user = folder.stat().st_uid
        started = start_of((folder / "stat").read_text(encoding="utf-8", errors="replace"))
    except OSError:
        return None
    if not words or Path(words[0]).name != program.name or not is_program(folder, words[0], program):
        return None
    return Process(int(number), words[1:], user, started)


def service_process(program):
    """The first process of the service's program. None when there is none."""
    numbers = sorted(int(entry.name) for entry in os.scandir("/proc") if entry.name.isdigit())
    return next(filter(None, (read_process(number, program) for number in numbers)), None)


def address_of(text):
    """The kernel's hexadecimal address, whose 32-bit words are in the machine's order."""
    words = [int(text[i:i + 8], 16) for i in range(0, len(text), 8)]
    packed = struct.pack(f"={len(words)}I", *words)
    return socket.inet_ntop(socket.AF_INET if len(words) == 1 else socket.AF_INET6, packed)


def owners(inodes):
    """Returns {inode: process} as far as the processes may be looked at."""
    found = {}
    for entry in os.scandir("/proc"):
        if not entry.name.isdigit():
            continue
        try:
            for descriptor in os.scandir(f"/proc/{entry.name}/fd"):
                target = os.readlink(descriptor.path)
                if target.startswith("socket:[") and target[8:-1] in inodes:
                    found.setdefault(target[8:-1], int(entry.name))
        except OSError:
            continue
    return found


def name_of(number):
    try:
        return Path(f"/proc/{number}/comm").read_text(encoding="utf-8", errors="replace").strip()
    except OSError:
        return ""


def listeners(port):
    """Returns a Listener for each socket that listens on the TCP port."""
    sockets = [(address_of(address), user, inode)
               for address, at, user, inode in listening_sockets() if at == port]
    known = owners({inode for _address, _user, inode in sockets})
    return [Listener(address, user, known.get(inode), name_of(known[inode]) if inode in known else "")
            for address, user, inode in sockets]


def described(listener):
    """The program that listens, in words."""
    if listener.process is None:
        return user_name(listener.user)
    return f"{listener.name}, {listener.process}, {user_name(listener.user)}"
