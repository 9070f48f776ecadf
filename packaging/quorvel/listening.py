"""The TCP ports that are listened on, as the kernel tells them."""

import os
from pathlib import Path

LISTENING = "0A"


def listening_sockets():
    """Yields (address as the kernel's digits, port, number of the user, inode in digits)."""
    for table in ("/proc/net/tcp", "/proc/net/tcp6"):
        if not os.path.exists(table):
            continue
        for line in Path(table).read_text(encoding="ascii").splitlines()[1:]:
            fields = line.split()
            address, _colon, port = fields[1].partition(":")
            if fields[3] == LISTENING:
                yield address, int(port, 16), int(fields[7]), fields[9]
