"""All checks, in the order in which a page reaches a card."""

from pathlib import Path

from quorvel.doctor.answers import check_access, check_answer, check_port, is_service, read_status
from quorvel.doctor.browsers import check_site
from quorvel.doctor.findings import UNCHECKED, Finding
from quorvel.doctor.installation import check_installation
from quorvel.doctor.libraries import check_libraries
from quorvel.doctor.process import listeners, service_process
from quorvel.doctor.readers import check_readers
from quorvel.doctor.settings import check_settings, read_options, read_settings
from quorvel.doctor.tls import check_tls
from quorvel.doctor.unit import check_unit, read_unit
from quorvel.language import _

WORKING_DIRECTORY = "/var/lib/quorvelserver"


class Visit:
    """What several checks look at, read once."""

    def __init__(self, machine):
        self.machine = machine
        self.unit = read_unit(machine)
        self.process = service_process(machine.command("quorvelserver"))
        self.options, self.option_faults = read_options(machine)
        in_use = self.process.options if self.process else self.options
        self.settings, self.settings_fault = read_settings(machine, self.options)
        self.port = self.settings["serviceIni"]["port"] if self.settings else 0
        self.listeners = listeners(self.port) if self.port else []
        self.with_tls = any(option.startswith("-s") for option in in_use)
        self.status = None
        self.home = self.working_directory()

    def serves(self):
        """Whether the service itself has its port."""
        return self.process is not None and bool(self.listeners) and \
            is_service(self.listeners[0], self.process)

    def working_directory(self):
        named = self.unit.properties.get("WorkingDirectory")
        folder = self.process.folder if self.process else None
        if folder is None and (named or self.machine.path(WORKING_DIRECTORY).is_dir()):
            folder = self.machine.path(named or WORKING_DIRECTORY)
        return folder and Path(folder)

    def port_checks(self):
        yield from check_port(self.port, self.process, self.listeners)
        if self.serves():
            yield from check_answer(self.port, self.process)
            yield from check_access(self.listeners, self.settings)
            self.status, _reason = read_status(self.machine, self.port, self.process)


def topics(visit, sites):
    """Yields (name, function that makes the findings)."""
    machine, process, settings = visit.machine, visit.process, visit.settings
    yield "installation", lambda: check_installation(machine, process, visit.home)
    yield "settings", lambda: check_settings(machine, process, settings, visit.settings_fault,
                                             visit.options, visit.option_faults)
    yield "unit", lambda: check_unit(visit.unit)
    yield "port", visit.port_checks
    yield "libraries", lambda: check_libraries(machine, visit.unit, settings, visit.status,
                                               process is not None)
    yield "tls", lambda: check_tls(machine, visit.with_tls, visit.home)
    for site in sites:
        yield "browsers", lambda site=site: check_site(visit, site)
    yield "readers", lambda: check_readers(machine, settings)


def examine(machine, sites):
    """Yields every finding as it is made."""
    visit = Visit(machine)
    for name, check in topics(visit, sites):
        try:
            yield from check()
        # What may not be looked at is no reason to leave out the rest.
        except OSError as error:
            yield Finding(name, UNCHECKED, _("{name}: {reason}.").format(
                name=error.filename or name, reason=error.strerror or str(error)),
                "" if machine.is_root else "sudo quorvel-doctor")
