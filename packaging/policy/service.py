"""The service INI file: whose pages the service admits, and what they may call."""

import stat

from policy.access_section import AccessSection
from policy.files import file_below, replace_file
from policy.sites import PolicyError, Site, ask_service, find_sites
from quorvel.language import _

NAME = "quorvel_service.ini"
NO_SECTION = {"header": 0, "mostSites": 0, "keys": []}


class ServiceFile:
    """In memory until it is written. The folder is the program's; the file may be absent."""

    def __init__(self, root, folder):
        # The program may also run from within the image.
        if folder.is_relative_to(root.resolve()):
            folder = folder.relative_to(root.resolve())
        self.path = file_below(root, str(folder / NAME).lstrip("/"))
        self.there = self.path.exists()
        self._before = self.path.read_bytes() if self.there else b""
        # It would end a line for the service, but not for who counts lines.
        if b"\0" in self._before:
            raise PolicyError(_("{path} holds a zero byte; save it in GBK or UTF-8").format(
                path=self.path))
        self._section = AccessSection(
            self._before, ask_service("--access", self.path) if self.there else NO_SECTION)
        wrong = [key for key in self._section.origins() if key.fault]
        for key, site in zip(wrong, find_sites([key.value for key in wrong])):
            key.meant = site.origin if isinstance(site, Site) else None

    @property
    def limits(self):
        """Whether the service refuses pages: also when what stands there as an origin is none."""
        return bool(self._section.origins())

    def sites(self):
        """Returns {origin: names of functions, or None for all}."""
        return {key.origin: self._section.functions(key) for key in self._section.origins()
                if not key.fault}

    def faults(self):
        """Returns what is wrong with each value that is no origin, and the cure."""
        return [f"{key.name}={key.value}: {key.fault}" for key in self._section.origins()
                if key.fault]

    def enter(self, sites, functions):
        """Leaves the functions of a site as they are when None are named."""
        if not self.there:
            raise PolicyError(_("{path} is missing; install the service there first").format(
                path=self.path))
        try:
            for site in sites:
                self._section.enter(site.origin, functions)
        except ValueError as error:
            raise PolicyError(_("{path} can not take this: {reason}").format(
                path=self.path, reason=error))

    def remove(self, sites):
        for site in sites:
            self._section.remove(site.origin)

    def write(self):
        """Keeps owner and mode. Returns whether there was anything to write."""
        if self._section.content == self._before:
            return False
        status = self.path.stat()
        replace_file(self.path, self._section.content, stat.S_IMODE(status.st_mode),
                     (status.st_uid, status.st_gid))
        return True
