"""The systemd unit: whether it runs, how often it had to be started anew, and its last errors."""

import json
from typing import NamedTuple

from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.doctor.machine import SERVICE, run
from quorvel.language import _

PROPERTIES = ("LoadState", "ActiveState", "SubState", "UnitFileState", "NRestarts", "MainPID",
              "WorkingDirectory", "ProtectHome", "NeedDaemonReload", "InvocationID")
ERROR_LINES = 3
# systemd's number for errors; the journal counts downwards.
ERRORS = 3


class Unit(NamedTuple):
    """What systemd tells of the unit; `reason` says why it tells nothing."""

    properties: dict
    reason: str = ""

    @property
    def is_there(self):
        return self.properties.get("LoadState") == "loaded"

    @property
    def is_active(self):
        return self.is_there and self.properties["ActiveState"] == "active"


def read_unit(machine):
    if not machine.path("/run/systemd/system").is_dir():
        return Unit({}, _("systemd does not run here"))
    outcome = run("systemctl", "show", SERVICE, "--property", ",".join(PROPERTIES))
    if not outcome.good:
        return Unit({}, outcome.complaint)
    return Unit(dict(line.split("=", 1) for line in outcome.output.splitlines() if "=" in line))


def text_of(message):
    """The journal gives a message that is no UTF-8 as a list of bytes."""
    if isinstance(message, str):
        return message
    return bytes(message or []).decode("gb18030", "replace")


def journal(*selection, lines):
    """Returns the unit's last messages as (time in seconds, priority, text), or why there are none."""
    outcome = run("journalctl", "--unit", SERVICE, "--output=json", f"--lines={lines}", *selection)
    if not outcome.good:
        return [], outcome.complaint
    if "not seeing messages" in outcome.errors:
        return [], _("only root and the group systemd-journal may read the journal")
    messages = []
    for line in outcome.output.splitlines():
        try:
            entry = json.loads(line)
        except ValueError:
            continue
        messages.append((int(entry.get("__REALTIME_TIMESTAMP", 0)) // 1000000,
                         int(entry.get("PRIORITY", 6)), text_of(entry.get("MESSAGE"))))
    return messages, ""


def check_start(unit):
    state = unit.properties["UnitFileState"]
    if state == "enabled":
        yield Finding("unit.enabled", OK, _("The service is started with the machine."))
    elif state == "masked":
        yield Finding("unit.enabled", FAULT, _("The service is masked: nothing can start it."),
                      f"sudo systemctl unmask {SERVICE} && sudo systemctl enable --now {SERVICE}")
    else:
        yield Finding("unit.enabled", WARNING, _("The service is not started with the machine."),
                      f"sudo systemctl enable {SERVICE}")


def check_state(unit):
    state, detail = unit.properties["ActiveState"], unit.properties["SubState"]
    if unit.is_active:
        yield Finding("unit.running", OK, _("The service runs (process {number}).").format(
            number=unit.properties["MainPID"]))
    elif state == "activating":
        yield Finding("unit.running", FAULT,
                      _("The service does not come up and is tried again and again ({state}).").format(
                          state=detail), _("See its last errors, below."))
    else:
        yield Finding("unit.running", FAULT, _("The service does not run ({state}).").format(
            state=f"{state}, {detail}"), f"sudo systemctl start {SERVICE}")
    restarts = int(unit.properties["NRestarts"] or 0)
    if restarts:
        yield Finding("unit.restarts", WARNING,
                      _("The service ended by itself and was started anew {number} times.").format(
                          number=restarts),
                      _("A reader library inside it has failed, or its port is taken; isolate the "
                        "library (man 8 quorvelserver)."))
    elif unit.is_active:
        yield Finding("unit.restarts", OK, _("It has not ended by itself since it was started."))
    if unit.properties["NeedDaemonReload"] == "yes":
        yield Finding("unit.reload", WARNING, _("The unit's files were changed and not taken up."),
                      f"sudo systemctl daemon-reload && sudo systemctl restart {SERVICE}")


def check_errors(unit):
    selection = [f"--priority={ERRORS}"]
    if unit.is_active:
        selection.append(f"_SYSTEMD_INVOCATION_ID={unit.properties['InvocationID']}")
    else:
        selection.append("--boot")
    messages, reason = journal(*selection, lines=ERROR_LINES)
    if reason:
        yield Finding("unit.errors", UNCHECKED, _("The service's errors: {reason}.").format(
            reason=reason), f"sudo quorvel-doctor, journalctl -u {SERVICE} -p err")
    elif not messages:
        yield Finding("unit.errors", OK, _("The log has no errors since the last start."))
    for _time, _priority, text in messages:
        yield Finding("unit.errors", WARNING, _("Error in the log: {text}").format(text=text.strip()))


def check_unit(unit):
    if unit.reason:
        yield Finding("unit.running", UNCHECKED, _("The systemd unit: {reason}.").format(
            reason=unit.reason))
        return
    if not unit.is_there:
        state = unit.properties.get("LoadState")
        if state == "masked":
            yield from check_start(unit)
            return
        yield Finding("unit.running", UNCHECKED, _("There is no systemd unit {name} ({state}).").format(
            name=SERVICE, state=state), _("Install the package, unless you start the service otherwise."))
        return
    yield from check_start(unit)
    yield from check_state(unit)
    yield from check_errors(unit)
