"""The machine that is looked at: its files, its commands, and the service's user."""

import contextlib
import grp
import os
import pwd
import signal
import subprocess
from pathlib import Path
from typing import NamedTuple, Optional

from quorvel.language import _

SERVICE = "quorvelserver"
# Longest time for a command, unless its caller knows better. No check may hang.
SECONDS = 10


class Outcome(NamedTuple):
    """Of a command: without a `status` it did not end, and `reason` says why."""

    status: Optional[int]
    output: str = ""
    errors: str = ""
    reason: str = ""
    hung: bool = False  # until its time was over

    @property
    def good(self):
        return self.status == 0

    @property
    def complaint(self):
        """The last line of what it had to say; never empty."""
        lines = (self.errors.strip() or self.output.strip()).splitlines()
        return self.reason or (lines[-1] if lines else _("status {number}").format(number=self.status))


def run(*command, seconds=SECONDS, in_own_language=False, text=None, **options):
    """Runs the command and what it starts for at most that time. Programs that are only read speak
    English, and bytes of theirs that are no UTF-8 are replaced."""
    environment = dict(os.environ)
    if not in_own_language:
        environment["LC_ALL"] = "C.UTF-8"
        environment.pop("LANGUAGE", None)
    try:
        with subprocess.Popen([str(word) for word in command], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              encoding="utf-8", errors="replace", start_new_session=True,
                              env=environment, **options) as process:
            try:
                output, errors = process.communicate(text, timeout=seconds)
            except subprocess.TimeoutExpired:
                # With all that it has started: those would keep its output open.
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
                return Outcome(None, reason=_("{program} did not end within {seconds} seconds").format(
                    program=Path(command[0]).name, seconds=seconds), hung=True)
    except FileNotFoundError:
        return Outcome(None, reason=_("{program} is not installed").format(program=Path(command[0]).name))
    except (OSError, subprocess.SubprocessError) as error:
        return Outcome(None, reason=f"{Path(command[0]).name}: {error}")
    return Outcome(process.returncode, output, errors)


class Machine:
    """`program` is the folder of the installation, with bin/ and libexec/; `root` stands for "/"."""

    def __init__(self, program, root=Path("/")):
        self.program = program
        self.root = root
        self.is_root = os.geteuid() == 0

    def path(self, name):
        return self.root / str(name).lstrip("/")

    def command(self, name):
        return self.program / "bin" / name

    @property
    def service_user(self):
        """The entry of the package's user, or None where there is no such user."""
        try:
            return pwd.getpwnam(SERVICE)
        except KeyError:
            return None

    def as_service(self):
        """Options of run() that make the command the service user's; empty where that can't be."""
        user = self.service_user
        if not self.is_root or user is None:
            return {}
        groups = os.getgrouplist(SERVICE, user.pw_gid)
        with contextlib.suppress(KeyError):
            groups.append(grp.getgrnam("plugdev").gr_gid)
        return {"user": user.pw_uid, "group": user.pw_gid, "extra_groups": groups, "cwd": "/"}

    def person(self):
        """The entry of the user who asks: under sudo the one who typed it."""
        name = os.environ.get("SUDO_USER") if self.is_root else None
        with contextlib.suppress(KeyError):
            if name:
                return pwd.getpwnam(name)
        return pwd.getpwuid(os.getuid())


def user_name(number):
    try:
        return pwd.getpwuid(number).pw_name
    except KeyError:
        return str(number)
