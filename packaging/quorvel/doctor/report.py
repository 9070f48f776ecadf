"""The file for support: all that was found, the settings and the log, without personal data.

Of the log it has the service's own errors, warnings and notices. What reader libraries print may
tell of a card, and progress lines tell of clients, so both stay out; requests are in neither.
"""

import os
import platform
import time

from quorvel.doctor.findings import as_line, summary
from quorvel.doctor.machine import SERVICE, run
from quorvel.doctor.redaction import redact
from quorvel.doctor.settings import OPTIONS_FILE
from quorvel.doctor.unit import journal
from quorvel.language import _

LOG_LINES = 300
# The journal's number; progress and a library's own lines have higher ones.
NOTICES = 5
LARGEST_FILE_BYTES = 65536


def content(path):
    try:
        with open(path, "rb") as file:
            data = file.read(LARGEST_FILE_BYTES)
    except OSError as error:
        return error.strerror
    try:
        return data.decode("utf-8")
    except UnicodeDecodeError:
        return data.decode("gb18030", "replace")


def log_text():
    messages, reason = journal(f"--priority={NOTICES}", lines=LOG_LINES)
    if reason:
        return reason
    return "\n".join(f"{time.strftime('%F %T', time.localtime(at))} <{priority}> {text}"
                     for at, priority, text in messages)


def sections(machine, findings, version):
    yield _("Findings"), "\n".join([*map(as_line, findings), summary(findings)])
    yield _("Machine"), "\n".join([f"quorvelserver {version}", platform.platform(),
                                   content(machine.path("/etc/os-release"))])
    for path in (machine.program / "bin/quorvel_service.ini", machine.program / "bin/quorvel.ini",
                 machine.path(OPTIONS_FILE)):
        yield str(path), content(path)
    yield _("Unit"), run("systemctl", "cat", SERVICE).output or _("none")
    yield _("Log"), log_text()


def write_report(path, machine, findings, version):
    """Writes the report for its owner alone; an existing file is replaced."""
    with open(path, "w", encoding="utf-8", opener=lambda name, flags: os.open(
            name, flags | os.O_NOFOLLOW, 0o600)) as file:
        for title, text in sections(machine, findings, version):
            file.write(f"== {title}\n{redact(text).rstrip()}\n\n")
