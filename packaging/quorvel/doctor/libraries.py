"""The reader libraries: as the running service sees them, or loaded as it would load them."""

import json
import os
import re
from pathlib import Path

from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.doctor.machine import SERVICE, run
from quorvel.language import _

# A library may look for its devices while it is loaded.
LOAD_SECONDS = 30
HOMES = ("/home/", "/root/", "/run/user/")
# The unit's lines that make no sandbox, but start and end the service.
NO_SANDBOX = re.compile(r"(?:Exec\w+|Type|Restart\w*|Timeout\w+|Kill\w+|EnvironmentFile|OOMPolicy|PIDFile)=")
MISSING_FILE = re.compile(r"(\S+): cannot open shared object file: No such file")


def cure_of(reason, path, hides_homes):
    """What to do about a library that was not loaded, by what the dynamic loader said."""
    if hides_homes and path.startswith(HOMES):
        return _("The service sees no home directories. Copy the file to {folder} and name it in "
                 "quorvel_service.ini without a folder.").format(folder="/opt/apps/quorvelserver/bin")
    missing = MISSING_FILE.search(reason)
    if missing and Path(missing.group(1)).name == Path(path).name:
        return _("There is no such file: copy it there, or correct quorvel_service.ini.")
    if missing:
        return _("It needs {file}: install the package that brings it.").format(file=missing.group(1))
    # What of the dynamic loader's words tells the cause.
    cures = (
        ("invalid ELF header", _("The file is no shared object; copy it here again.")),
        ("file too short", _("The file is incomplete; copy it here again.")),
        ("wrong ELF class", _("It is made for another kind of machine; ask its maker for one for this.")),
        ("undefined symbol", _("It does not fit its own libraries; ask its maker.")),
        ("Permission denied", _("Make it readable for all: sudo chmod 644 {path}").format(path=path)),
    )
    return next((cure for words, cure in cures if words in reason),
                _("quorvel-libcheck {path} shows where it fails.").format(path=path))


def isolation_text(seconds):
    if seconds:
        return _("in a process of its own, {seconds} s a call").format(seconds=seconds)
    return _("inside the service, which ends with it when it crashes")


def served(library, path, hides_homes):
    """One library of the service's own report."""
    name = f"{library['key']}={path}"
    if library["state"] == "failed":
        reason = library.get("reason", "")
        return Finding("libraries.state", FAULT, _("{name} is not loaded: {reason}").format(
            name=name, reason=reason.strip()), cure_of(reason, path, hides_homes))
    restarts = int(library["restarts"])
    seconds = int(library.get("limit", 0))
    if library["state"] == "restarting" or restarts:
        return Finding("libraries.state", WARNING,
                       _("{name} had to be started anew {number} times.").format(name=name, number=restarts),
                       _("The log says why: journalctl -u quorvelserver -p err"))
    functions = library.get("functions", [])
    return Finding("libraries.state", OK, _("{name} is loaded, {isolation}; functions: {names}.").format(
        name=name, isolation=isolation_text(seconds), names=", ".join(functions)))


def sandbox(unit_text):
    """Options of systemd-run that give a command the sandbox of the unit's text."""
    section, options = "", []
    for line in unit_text.replace("\\\n", " ").splitlines():
        line = line.strip()
        if line.startswith("["):
            section = line
        elif section == "[Service]" and "=" in line and line[0] not in "#;" and not NO_SANDBOX.match(line):
            options.append(f"--property={line}")
    return options


def load(machine, unit, path):
    """Loads the library and returns (its functions, or None; the reason; where it was tried)."""
    command = [machine.command("quorvel-settings"), "--load", path]
    options = {}
    if machine.is_root and unit.is_there:
        text = run("systemctl", "cat", SERVICE).output
        command = ["systemd-run", "--quiet", "--wait", "--pipe", "--collect", *sandbox(text), *command]
        place = _("as the service, in its sandbox")
    elif machine.as_service():
        options = machine.as_service()
        place = _("as the service's user, without its sandbox")
    else:
        place = _("as the user {name}, not as the service").format(name=machine.person().pw_name)
    outcome = run(*command, seconds=LOAD_SECONDS, **options)
    try:
        answer = json.loads(outcome.output)
    except ValueError:
        if outcome.status is not None and outcome.status < 0:
            return None, _("it crashes while it is loaded (signal {number})").format(
                number=-outcome.status), place
        return None, outcome.complaint, place
    return answer.get("functions"), answer.get("error", ""), place


def tried(machine, unit, library, hides_homes):
    """One library of the settings, when the service can not be asked. Also returns its functions."""
    path = library["path"]
    name = f"{library['key']}={path}"
    if "failure" in library:
        return Finding("libraries.state", FAULT, _("{name} is not loaded: {reason}").format(
            name=name, reason=library["failure"]), _("See the settings, above.")), []
    in_home = hides_homes and path.startswith(HOMES)
    functions, reason, place = load(machine, unit, path)
    if functions is None or in_home:
        reason = reason or _("it lies in a home directory")
        return Finding("libraries.state", FAULT, _("{name} can not be loaded ({place}): {reason}").format(
            name=name, place=place, reason=reason.strip()), cure_of(reason, path, hides_homes)), []
    names = functions.split()
    text = _("{name} can be loaded ({place}), {isolation}; functions: {names}.").format(
        name=name, place=place, isolation=isolation_text(library.get("isolatedSeconds")),
        names=", ".join(names))
    if machine.is_root and unit.is_there:
        return Finding("libraries.state", OK, text), names
    cure = "" if machine.is_root else _("To try it as the service does, run: sudo quorvel-doctor")
    return Finding("libraries.state", UNCHECKED, text, cure), names


def overlaps(functions):
    """Names each function that two libraries declare; {path: names} is given."""
    in_order = sorted(functions, key=os.fsencode)
    for number, first in enumerate(in_order):
        for other in in_order[number + 1:]:
            for name in sorted(set(functions[first]) & set(functions[other])):
                yield Finding("libraries.overlap", WARNING,
                              _("Both {first} and {other} declare {function}: the service asks the "
                                "first.").format(first=first, other=other, function=name),
                              _("Take one of the two out of quorvel_service.ini, unless this is meant."))


def check_libraries(machine, unit, settings, status, running):
    """`status` is the running service's own report, or None. A library is never loaded a second time
    beside a service that runs: both would have its reader."""
    if settings is None:
        yield Finding("libraries.state", UNCHECKED, _("The libraries, since the settings are not known."))
        return
    listed = settings["serviceIni"]["libraries"]
    if not listed:
        yield Finding("libraries.state", FAULT, _("No reader library is listed: every card request fails."),
                      _("Name your reader's library under [REGISTER] in quorvel_service.ini: "
                        "lib1=FILE.so"))
    if status is None and running:
        yield Finding("libraries.state", UNCHECKED, _("The libraries: the running service does not tell of "
                      "them."), "sudo systemctl restart quorvelserver")
        return
    hides_homes = unit.properties.get("ProtectHome", "no") != "no"
    functions = {}
    reported = {library["key"]: library for library in status["libraries"]} if status else {}
    for library in listed:
        seen = reported.get(library["key"])
        if seen is not None:
            yield served(seen, library["path"], hides_homes)
            functions[library["path"]] = seen.get("functions", [])
        else:
            finding, functions[library["path"]] = tried(machine, unit, library, hides_homes)
            yield finding
    yield from overlaps(functions)
