"""The language of the commands' texts: that of the locale, from the catalogues in share/locale."""

import gettext
import sys
from pathlib import Path

DOMAIN = "quorvelserver"
CATALOGUES = Path(__file__).resolve().parent.parent.parent / "share" / "locale"

# argparse's own texts, which it looks up where it finds ours.
gettext.bindtextdomain(DOMAIN, CATALOGUES)
gettext.textdomain(DOMAIN)

_ = gettext.gettext

_("usage: ")
_("options")
_("positional arguments")
_("show this help message and exit")
_("%(prog)s: error: %(message)s\n")
_("unrecognized arguments: %s")
_("expected one argument")
_("argument %(argument_name)s: %(message)s")

for stream in (sys.stdout, sys.stderr):
    # A terminal in an old character set shows what it can.
    stream.reconfigure(errors="replace")
