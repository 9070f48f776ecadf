"""The two INI files and the options, as the service's own code judges them."""

import json
import re
import shlex
from datetime import datetime

from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.doctor.machine import SERVICE, run
from quorvel.language import _

OPTIONS_FILE = "/etc/default/quorvelserver"
OPTIONS_NAME = "QUORVEL_OPTIONS"
ASSIGNMENT = re.compile(r"^\s*([A-Za-z_][A-Za-z0-9_]*)=(.*)$", re.MULTILINE)
LEVELS = {"error": FAULT, "warning": WARNING}


def read_options(machine):
    """Returns the options for the next start, and what of the file has no effect."""
    findings, options = [], []
    try:
        text = machine.path(OPTIONS_FILE).read_text(encoding="utf-8", errors="replace")
    except OSError:
        return options, findings
    for name, value in ASSIGNMENT.findall(text):
        if name == OPTIONS_NAME:
            try:
                # systemd takes the quotes off the whole and splits at blanks.
                options = " ".join(shlex.split(value, comments=False)).split()
            except ValueError as error:
                findings.append(Finding("settings.options", FAULT, f"{OPTIONS_FILE}: {value}: {error}",
                                        f'{OPTIONS_NAME}="-s"'))
        elif name.upper().startswith("QUORVEL"):
            findings.append(Finding(
                "settings.options", WARNING,
                _("{file}: {name} means nothing to the service.").format(file=OPTIONS_FILE, name=name),
                _("Write the options into {name}.").format(name=OPTIONS_NAME)))
    return options, findings


def read_settings(machine, options):
    """Returns what the service makes of its files, or None and the reason."""
    outcome = run(machine.command("quorvel-settings"), *options, in_own_language=True)
    try:
        return json.loads(outcome.output), ""
    except ValueError:
        return None, outcome.complaint


def faults_of(check, part):
    return [Finding(check, LEVELS[fault["level"]], fault["text"]) for fault in part["faults"]]


def check_age(process, paths):
    """Files that the running service has not read as they are now."""
    for path in paths:
        try:
            changed = path.stat().st_mtime
        except OSError:
            continue
        if process is not None and changed > process.started:
            yield Finding("settings.age", WARNING,
                          _("{path} was changed after the service started ({time}): it still runs "
                            "with the old settings.").format(
                                path=path, time=datetime.fromtimestamp(changed).strftime("%F %T")),
                          f"sudo systemctl restart {SERVICE}")


def check_settings(machine, process, settings, reason, options_set, option_faults):
    yield from option_faults
    if settings is None:
        yield Finding("settings.service_ini", UNCHECKED, _("The settings: {reason}.").format(
            reason=reason))
        return
    options = faults_of("settings.options", settings["commandLine"])
    yield from options
    if not options and not option_faults:
        yield Finding("settings.options", OK, _("The options in {file} are in order: {options}.").format(
            file=OPTIONS_FILE, options=" ".join(options_set) or _("none")))
    for check, part in (("settings.service_ini", "serviceIni"), ("settings.server_ini", "serverIni")):
        if part not in settings:
            continue
        found = faults_of(check, settings[part])
        yield from found
        if not found:
            yield Finding(check, OK, _("{path} is in order.").format(path=settings[part]["path"]))
    yield from check_age(process, [machine.path(settings["serviceIni"]["path"]),
                                   machine.path(OPTIONS_FILE)])
