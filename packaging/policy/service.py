"""The service INI file: whose pages the service admits, and what they may call."""

import stat

from policy.access_section import AccessSection
from policy.files import file_below, replace_file
from policy.sites import PolicyError, Site, find_sites, judge
from quorvel.language import _

NAME = "quorvel_service.ini"
# Of the file; what this command writes into it is ASCII but for the names of functions.
ENCODING = "gbk"


def spellings(sites):
    return {value: site.origin.encode("ascii") for value, site in sites.items()
            if isinstance(site, Site)}


class ServiceFile:
    """In memory until it is written. The folder is the program's; the file may be absent."""

    def __init__(self, root, folder):
        # The program may also run from within the image.
        if folder.is_relative_to(root.resolve()):
            folder = folder.relative_to(root.resolve())
        self.path = file_below(root, str(folder / NAME).lstrip("/"))
        self.there = self.path.exists()
        self._before = self.path.read_bytes() if self.there else b""
        self._section = AccessSection(self._before)
        judged = judge(self._section.origins())
        self._faults = {value: fault for value, fault in judged.items()
                        if not isinstance(fault, Site)}
        meant = find_sites([value.decode("ascii", "replace") for value in self._faults])
        self._section.spellings = spellings(judged)
        self._section.meant = spellings(dict(zip(self._faults, meant)))

    @property
    def limits(self):
        """Whether the service refuses pages: also when what stands there as an origin is none."""
        return bool(self._section.origins())

    def sites(self):
        """Returns {origin: names of functions, or None for all}."""
        return {origin.decode(ENCODING, "replace"):
                None if functions is None else functions.decode(ENCODING, "replace")
                for origin, functions in self._section.origins().items()
                if origin not in self._faults}

    def faults(self):
        """Returns what is wrong with each value that is no origin, and the cure."""
        return [f"{value.decode(ENCODING, 'replace')}: {self._faults[value]}"
                for value in self._section.origins() if value in self._faults]

    def enter(self, sites, functions):
        """Leaves the functions of a site as they are when None are named."""
        if not self.there:
            raise PolicyError(_("{path} is missing; install the service there first").format(
                path=self.path))
        try:
            names = None if functions is None else functions.encode(ENCODING)
            for site in sites:
                self._section.enter(site.origin.encode("ascii"), names)
        except ValueError as error:
            raise PolicyError(_("{path} can not take this: {reason}").format(
                path=self.path, reason=error))

    def remove(self, sites):
        for site in sites:
            self._section.remove(site.origin.encode("ascii"))

    def write(self):
        """Keeps owner and mode. Returns whether there was anything to write."""
        if self._section.content == self._before:
            return False
        status = self.path.stat()
        replace_file(self.path, self._section.content, stat.S_IMODE(status.st_mode),
                     (status.st_uid, status.st_gid))
        return True
