"""Files of a system, which may be an image below a root folder of its own."""

import contextlib
import fcntl
import os
import tempfile

from policy.sites import PolicyError
from quorvel.language import _

# Two runs at once take turns. The file is there only while a run works, and other users can not
# open it, so they can not hold the lock.
LOCK_FILE = "etc/.quorvel-policy.lock"


def is_at(file, path):
    """Tells whether the open file is still the one at the path."""
    try:
        return os.path.samestat(os.fstat(file.fileno()), os.lstat(path))
    except FileNotFoundError:
        return False


@contextlib.contextmanager
def only_run(root):
    """Holds off other runs on the same system."""
    path = root / LOCK_FILE
    path.parent.mkdir(exist_ok=True)
    while True:
        with open(path, "w", encoding="ascii", opener=lambda name, flags: os.open(
                name, flags | os.O_NOFOLLOW, 0o600)) as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            # The run that had the lock has removed the file, and another may have made it anew.
            if not is_at(lock, path):
                continue
            try:
                yield
            finally:
                path.unlink()
            return


def file_below(root, name):
    """Returns the file to read and write: the target where the name is a link."""
    path = (root / name).resolve()
    if not path.is_relative_to(root.resolve()):
        raise PolicyError(_("{link} is a link that leads out of {root}, to {path}; replace it by a "
                            "file and run this again").format(
            link=root / name, root=root, path=path))
    if path.exists() and not path.is_file():
        raise PolicyError(_("{path} is not a plain file; replace it by one and run this "
                            "again").format(path=path))
    return path


def replace_file(path, content, mode, owner=None):
    """Replaces the file by the content in one step; `owner` is its user's and group's number."""
    with tempfile.NamedTemporaryFile(dir=path.parent, delete=False) as new:
        try:
            new.write(content)
            new.flush()
            if owner:
                os.fchown(new.fileno(), *owner)
            os.fchmod(new.fileno(), mode)
            os.fsync(new.fileno())
            os.replace(new.name, path)
        except OSError:
            os.unlink(new.name)
            raise
