"""The section [ACCESS] of the service INI file, as quorvel-policy edits it.

The file is bytes of any encoding, and every byte outside the lines that change stays. What counts
is what the service reads (see man 8 quorvelserver): of sections of one name the last, in it of
keys of one name the last.
"""

import re

from quorvel.language import _

SECTION = b"ACCESS"
ORIGIN = b"origin"
FUNCTIONS = b"functions"
NUMBERS = range(1, 51)
# The service reads a line in pieces of at most this many bytes, each of which is a line to it.
LONGEST_LINE = 254
PIECE = re.compile(rb"[^\n]{0,254}\n|[^\n]{1,255}")


def text_of(piece):
    """The piece as the service looks at it."""
    line = piece.split(b"\0")[0].replace(b"\n", b"", 1).replace(b"\r", b"", 1)
    return line.lstrip(b" \t")


def is_header(line, section):
    """In [ACCESS] brackets may stand in a value: those of an IPv6 address."""
    return not line.startswith(b";") and b"[" in line and b"]" in line and not (
        section == SECTION and b"=" in line.partition(b"[")[0])


class AccessSection:
    """One file's content; `content` gives it back, with what was entered and removed.

    `spellings` holds the one spelling of an origin by values that have others of it, `meant` the
    origin by values that are none but would be in the manner of the file.
    """

    def __init__(self, content):
        self.spellings, self.meant = {}, {}
        self._pieces = PIECE.findall(content)
        self._line_end = b"\r\n" if b"\r\n" in content.partition(b"\n")[0] + b"\n" else b"\n"

    @property
    def content(self):
        return b"".join(self._pieces)

    def origins(self):
        """Returns {origin: value of functionsN or None}, in the order of N."""
        functions = self._values(FUNCTIONS)
        return {self.spellings.get(value, value): functions.get(number)
                for number, value in self._values(ORIGIN).items()}

    def enter(self, origin, functions=None):
        """Enters the origin if it is missing, in place of what was meant to be it, and sets its
        functions unless they are None.

        Throws ValueError when there is no room.
        """
        numbers = self._numbers_of(origin) or [self._free_number()]
        values = self._values(ORIGIN)
        for number in numbers:
            if number not in values or values[number] in self.meant:
                self._set(ORIGIN + b"%d" % number, origin)
        for number in numbers if functions is not None else ():
            self._set(FUNCTIONS + b"%d" % number, functions, behind=ORIGIN + b"%d" % number)

    def remove(self, origin):
        """Takes out every key that has the origin, with its functions."""
        for number in self._numbers_of(origin):
            for key in (ORIGIN + b"%d" % number, FUNCTIONS + b"%d" % number):
                for place in reversed(self._places().get(key, [])):
                    del self._pieces[place:self._line_after(place)]

    def _section(self):
        """Returns the places of the section's header and behind its last piece, or None."""
        header, end, section = None, None, b""
        for place, line in enumerate(map(text_of, self._pieces)):
            if is_header(line, section):
                end = place if section == SECTION else end
                section = line.replace(b"[", b"", 1).replace(b"]", b"", 1)
                header = place if section == SECTION else header
        if section == SECTION:
            end = len(self._pieces)
        return None if header is None else (header, end)

    def _places(self):
        """Returns {key: places of its pieces} of the section."""
        places = {}
        for place in range(*(self._section() or (0, 0))):
            line = text_of(self._pieces[place])
            key, equals = line.partition(b"=")[:2]
            if equals and not line.startswith(b";"):
                places.setdefault(key, []).append(place)
        return places

    def _value(self, place):
        return text_of(self._pieces[place]).partition(b"=")[2]

    def _line_after(self, place):
        while not self._pieces[place].endswith(b"\n") and place + 1 < len(self._pieces):
            place += 1
        return place + 1

    def _values(self, key):
        """Returns {N: value of keyN}, in the order of N."""
        places = self._places()
        return {number: self._value(places[key + b"%d" % number][-1]) for number in NUMBERS
                if key + b"%d" % number in places}

    def _numbers_of(self, origin):
        return [number for number, value in self._values(ORIGIN).items()
                if origin in (value, self.spellings.get(value), self.meant.get(value))]

    def _free_number(self):
        taken = self._places().keys()
        for number in NUMBERS:
            if not {ORIGIN + b"%d" % number, FUNCTIONS + b"%d" % number} & taken:
                return number
        raise ValueError(_("it holds {limit} sites, which is the limit; enter a domain, as in "
                           "https://*.example.org, or remove a site").format(limit=len(NUMBERS)))

    def _set(self, key, value, behind=None):
        """Gives the key the value: in its line, else in a new one at the end or `behind` a key's."""
        line = key + b"=" + value
        if len(line + self._line_end) > LONGEST_LINE + 1:
            raise ValueError(_("the line {key} would be longer than {limit} bytes").format(
                key=key.decode(), limit=LONGEST_LINE))
        places = self._places()
        if key in places:
            place = places[key][-1]
            if self._value(place) != value:
                self._pieces[place:self._line_after(place)] = [line + self._line_end]
            return
        if self._section() is None:
            self._insert(len(self._pieces), b"")
            self._insert(len(self._pieces), b"[" + SECTION + b"]")
            places = {}
        last = places[behind][-1] if behind else max(
            (place for found in places.values() for place in found), default=self._section()[0])
        self._insert(self._line_after(last), line)

    def _insert(self, place, line):
        if place > 0 and not self._pieces[place - 1].endswith(b"\n"):
            self._pieces[place - 1] += self._line_end
        self._pieces.insert(place, line + self._line_end)
