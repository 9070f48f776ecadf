#!/usr/bin/python3
"""A card for pcscd's virtual reader (Debian's vsmartcard-vpcd), to try the service without hardware.

An OpenPGP card of an invented person, as the shipped profile reads it. It stays in the reader until
this program is ended.
"""

import socket

PORT = 35963  # of the virtual reader
ATR = bytes.fromhex("3B800181")
AID = bytes.fromhex("D27600012401")
OBJECTS = {
    0x4F: AID + bytes.fromhex("03040005000000010000"),
    0x5E: b"anna@example.org",
    0x65: b"\x5B\x10Mustermann<<Anna\x5F\x2D\x02de\x5F\x35\x01\x32",
}
GET_ATR = b"\x04"
OK, NOT_FOUND, NO_OBJECT, UNKNOWN = b"\x90\x00", b"\x6A\x82", b"\x6A\x88", b"\x6D\x00"


def answer(command):
    """The answer to a command APDU, with its status word."""
    instruction, p1, p2 = command[1:4]
    if instruction == 0xA4:
        return OK if p1 == 4 and command[5:5 + command[4]] == AID else NOT_FOUND
    if instruction == 0xCA:
        value = OBJECTS.get(p1 << 8 | p2)
        return NO_OBJECT if value is None else value + OK
    return UNKNOWN


def main():
    with socket.create_connection(("127.0.0.1", PORT)) as reader, reader.makefile("rb") as messages:
        while len(head := messages.read(2)) == 2:
            message = messages.read(int.from_bytes(head, "big"))
            reply = ATR if message == GET_ATR else answer(message) if len(message) > 1 else None
            if reply is not None:
                reader.sendall(len(reply).to_bytes(2, "big") + reply)


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
