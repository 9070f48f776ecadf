"""Lists the PC/SC readers as a JSON object. A program of its own, since a call may hang."""

import ctypes
import json

SCOPE_SYSTEM = 2
NO_ERROR = 0
TIMEOUT = 0x8010000A
PRESENT = 0x0020
MUTE = 0x0200


class Failure(Exception):
    """The name of the call and the number that it returned."""


class ReaderState(ctypes.Structure):
    """SCARD_READERSTATE of pcsc-lite."""
    _fields_ = [("name", ctypes.c_char_p), ("user", ctypes.c_void_p), ("current", ctypes.c_ulong),
                ("event", ctypes.c_ulong), ("length", ctypes.c_ulong), ("atr", ctypes.c_ubyte * 33)]


def readers():
    library = ctypes.CDLL("libpcsclite.so.1")

    def call(name, *arguments, also=NO_ERROR):
        function = getattr(library, name)
        function.restype = ctypes.c_long
        result = function(*arguments) & 0xFFFFFFFF
        if result not in (NO_ERROR, also):
            raise Failure(name, result)

    context = ctypes.c_long()
    call("SCardEstablishContext", ctypes.c_ulong(SCOPE_SYSTEM), None, None, ctypes.byref(context))
    length = ctypes.c_ulong()
    call("SCardListReaders", context, None, None, ctypes.byref(length))
    names = ctypes.create_string_buffer(length.value)
    call("SCardListReaders", context, None, names, ctypes.byref(length))
    for name in filter(None, names.raw[:length.value].split(b"\0")):
        state = ReaderState(name=name)
        call("SCardGetStatusChange", context, ctypes.c_ulong(0), ctypes.byref(state), ctypes.c_ulong(1),
             also=TIMEOUT)
        yield {"name": name.decode("utf-8", "replace"), "card": bool(state.event & PRESENT),
               "mute": bool(state.event & MUTE)}


def main():
    try:
        print(json.dumps({"readers": list(readers())}))
    except Failure as failure:
        print(json.dumps({"call": failure.args[0], "error": failure.args[1]}))


if __name__ == "__main__":
    main()
