"""The section [ACCESS] of the service INI file, as quorvel-policy edits it.

The file is bytes of any encoding, and every byte outside the lines that change stays. What counts
in it, the service's own code says.
"""

import re
from dataclasses import dataclass
from typing import Optional

from quorvel.language import _

# Of the file; what is written into it is ASCII but for the names of functions.
ENCODING = "gbk"
# The service reads a line in pieces of at most this many bytes, each of which is a line to it.
LONGEST_LINE = 254


# Lines are compared as the places that they are.
@dataclass(eq=False)
class Line:
    """With its end."""

    content: bytes


@dataclass
class Key:
    """One that counts. An originN has the one spelling of its `origin`, or a `fault`, and then the
    origin that is probably `meant`, if any."""

    name: str
    value: str
    line: Line
    origin: Optional[str] = None
    fault: str = ""
    meant: Optional[str] = None


class AccessSection:
    """One file's content; `content` gives it back, with what was entered and removed.

    `found` is what quorvel-settings --access tells of the file.
    """

    def __init__(self, content, found):
        self._lines = [Line(text) for text in re.findall(rb"[^\n]*\n|[^\n]+", content)]
        self._line_end = b"\r\n" if self._lines and self._lines[0].content.endswith(b"\r\n") else b"\n"
        self._numbers = range(1, found["mostSites"] + 1)
        self._header = self._lines[found["header"] - 1] if found["header"] else None
        self._keys = [Key(key["key"], key["value"], self._lines[key["line"] - 1], key.get("origin"),
                          key.get("fault", "")) for key in found["keys"]]

    @property
    def content(self):
        return b"".join(line.content for line in self._lines)

    def origins(self):
        """Returns the keys originN, in the order of N."""
        return [key for number in self._numbers for key in [self._key(f"origin{number}")] if key]

    def functions(self, origin):
        """Returns the value of the functionsN that goes with an originN, or None."""
        key = self._key(origin.name.replace("origin", "functions"))
        return key and key.value

    def enter(self, origin, functions=None):
        """Enters the origin if it is missing, in place of what was meant to be it, and sets its
        functions unless they are None.

        Throws ValueError when there is no room.
        """
        numbers = self._numbers_of(origin) or [self._free_number()]
        for number in numbers:
            key = self._key(f"origin{number}")
            if key is None or key.fault:
                self._set(f"origin{number}", origin)
            if functions is not None:
                self._set(f"functions{number}", functions, behind=self._key(f"origin{number}"))

    def remove(self, origin):
        """Takes out every key that has the origin, with its functions."""
        for number in self._numbers_of(origin):
            names = (f"origin{number}", f"functions{number}")
            gone = [key.line for key in self._keys if key.name in names]
            self._keys = [key for key in self._keys if key.line not in gone]
            self._lines = [line for line in self._lines if line not in gone]

    def _key(self, name):
        """Of keys of one name the last counts."""
        return next((key for key in reversed(self._keys) if key.name == name), None)

    def _numbers_of(self, origin):
        return [int(key.name[len("origin"):]) for key in self.origins()
                if origin in (key.origin, key.meant)]

    def _free_number(self):
        for number in self._numbers:
            if not self._key(f"origin{number}") and not self._key(f"functions{number}"):
                return number
        raise ValueError(_("it holds {limit} sites, which is the limit; enter a domain, as in "
                           "https://*.example.org, or remove a site").format(limit=len(self._numbers)))

    def _set(self, name, value, behind=None):
        """Gives the key the value: in its line, else in a new one at the end or `behind` a key's."""
        line = f"{name}={value}".encode(ENCODING) + self._line_end
        if len(line) > LONGEST_LINE + 1:
            raise ValueError(_("the line {key} would be longer than {limit} bytes").format(
                key=name, limit=LONGEST_LINE))
        key = self._key(name)
        if key is None:
            if self._header is None:
                self._insert(len(self._lines), self._line_end)
                self._header = self._insert(len(self._lines), b"[ACCESS]" + self._line_end)
            lines = [behind.line] if behind else [self._header, *(key.line for key in self._keys)]
            key = Key(name, "", self._insert(max(map(self._lines.index, lines)) + 1, line))
            self._keys.append(key)
        if key.value != value:
            key.line.content = line
        key.value, key.origin, key.fault = value, value if name.startswith("origin") else None, ""

    def _insert(self, place, content):
        if place > 0 and not self._lines[place - 1].content.endswith(b"\n"):
            self._lines[place - 1].content += self._line_end
        self._lines.insert(place, Line(content))
        return self._lines[place]
