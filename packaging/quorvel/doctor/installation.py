"""The installed files: whether they are there, and owners and modes where those matter."""

import os
import stat

from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.doctor.machine import SERVICE, run, user_name
from quorvel.language import _

NEEDED = ("bin/quorvelserver", "bin/quorvel-host", "bin/quorvel-settings", "bin/quorvel-call",
          "bin/quorvel_service.ini", "bin/quorvel.ini", "mount-origin/index.html")
PAGE_LINK = "mount-origin"
# The service stores the back-end address there; nothing else of the program is its to write.
WRITTEN_BY_SERVICE = "bin/quorvel.ini"
REINSTALL = "sudo apt-get install --reinstall quorvelserver"


def missing_files(machine):
    for name in NEEDED:
        if not (machine.program / name).exists():
            cure = REINSTALL
            if name.endswith(".ini"):
                cure = _("Put it back from {folder}, or: {command}").format(
                    folder=machine.program / "share", command=REINSTALL)
            yield Finding("installation.files", FAULT, _("{path} is missing.").format(
                path=machine.program / name), cure)


def mode_faults(machine, owner):
    """Names what others than root can change, except the one file that is the service's."""
    program = machine.program
    service = machine.service_user
    for path in (program, *sorted(program.glob("bin")), *sorted(program.glob("bin/*")),
                 *sorted(program.glob("libexec/**/*"))):
        try:
            status = path.stat()
        except OSError:
            continue
        if status.st_uid not in (0, owner):
            yield Finding("installation.modes", FAULT,
                          _("{path} belongs to {user}, who can put another program there.").format(
                              path=path, user=user_name(status.st_uid)), f"sudo chown root: {path}")
        if status.st_mode & stat.S_IWOTH:
            yield Finding("installation.modes", FAULT, _("Everybody can change {path}.").format(
                path=path), f"sudo chmod o-w {path}")
        its_file = path == program / WRITTEN_BY_SERVICE
        if service and status.st_gid == service.pw_gid and status.st_mode & stat.S_IWGRP and not its_file:
            yield Finding("installation.modes", FAULT,
                          _("The service itself can change {path}.").format(path=path),
                          f"sudo chmod g-w {path}")


def can_reach(path, user, groups, wanted):
    """Tells whether the mode bits let the user do what is `wanted` (bits as in S_IRWXO)."""
    status = path.stat()
    if status.st_uid == user:
        return status.st_mode >> 6 & wanted == wanted
    if status.st_gid in groups:
        return status.st_mode >> 3 & wanted == wanted
    return status.st_mode & wanted == wanted


def reach_faults(machine):
    service = machine.service_user
    groups = os.getgrouplist(SERVICE, service.pw_gid)
    settings = machine.program / "bin" / "quorvel_service.ini"
    if settings.exists() and not can_reach(settings, service.pw_uid, groups, stat.S_IROTH):
        yield Finding("installation.modes", FAULT, _("The service can not read {path}.").format(
            path=settings), f"sudo chmod 644 {settings}")
    address = machine.program / WRITTEN_BY_SERVICE
    if address.exists() and not can_reach(address, service.pw_uid, groups, stat.S_IROTH | stat.S_IWOTH):
        yield Finding("installation.modes", WARNING,
                      _("The service can not write {path}: an address that a page sets is lost.").format(
                          path=address),
                      f"sudo chown root:{SERVICE} {address} && sudo chmod 664 {address}")


def folder_faults(machine, home):
    """The working directory: the page is found there, and the service may not replace it."""
    if not (home / PAGE_LINK / "index.html").exists():
        yield Finding("installation.page", FAULT,
                      _("The page is not found in the working directory {folder}.").format(folder=home),
                      f"sudo ln -sfn {machine.program}/mount-origin {home}/mount-origin")
    status = home.stat()
    if status.st_mode & stat.S_IWOTH and not status.st_mode & stat.S_ISVTX:
        yield Finding("installation.modes", FAULT, _("Everybody can change {path}.").format(path=home),
                      f"sudo chmod 1775 {home}")


def package_changes():
    """Files that are no longer as the package brought them, configuration aside."""
    outcome = run("dpkg", "--verify", SERVICE, seconds=30)
    if outcome.status is None or "not installed" in outcome.errors:
        return []
    return [line.rpartition(" ")[2] for line in outcome.output.splitlines() if " c " not in line]


def check_installation(machine, process, home):
    missing = list(missing_files(machine))
    yield from missing
    if machine.service_user is None:
        yield Finding("installation.user", WARNING if process is None else UNCHECKED,
                      _("There is no user {name}, under which the package runs the service.").format(
                          name=SERVICE), REINSTALL)
    # Outside the package somebody may run the service from a folder of his own.
    owner = 0 if machine.service_user or process is None else process.user
    wrong = list(mode_faults(machine, owner))
    if machine.service_user is not None:
        wrong += reach_faults(machine)
    if home is not None and home.is_dir():
        wrong += folder_faults(machine, home)
    elif home is not None:
        wrong.append(Finding("installation.page", FAULT, _("The working directory {folder} is "
                             "missing.").format(folder=home), REINSTALL))
    yield from wrong
    for path in package_changes():
        wrong.append(path)
        yield Finding("installation.package", WARNING,
                      _("{path} is not as the package brought it.").format(path=path), REINSTALL)
    if not missing and not wrong:
        yield Finding("installation.files", OK, _("The files of {folder} are there, with the right "
                      "owners and modes.").format(folder=machine.program))
