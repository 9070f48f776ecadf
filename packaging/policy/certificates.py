"""The browsers' managed policies: which root certificate every user's browser trusts."""

import sys

from policy.browsers import CHROMIUM_FOLDERS, FIREFOX_FILE, Policies, read_json
from policy.files import file_below, only_run
from policy.sites import PolicyError
from quorvel.language import _

# A file of its own, which may come and go without a look at the sites.
CHROMIUM_FILE = "quorvelserver-certificate.json"
CHROMIUM_POLICY = "CACertificates"
CHROMIUM_TEMPLATE = {CHROMIUM_POLICY: []}
FIREFOX_TEMPLATE = {"policies": {"Certificates": {"Install": []}}}


class Certificates(Policies):
    """One browser's file; what stands in its list is a certificate in the browser's own form."""

    def spellings(self, sites):
        return sites


def chromium_files(root):
    return [file_below(root, f"{folder}/{CHROMIUM_FILE}") for folder in CHROMIUM_FOLDERS]


def entered(root):
    """Tells whether a certificate is entered for all users."""
    return any(path.exists() for path in chromium_files(root))


def rivals(root):
    """Returns other files that set the same policy, of which Chromium takes only one."""
    found = []
    for path in chromium_files(root):
        for other in sorted(set(path.parent.glob("*.json")) - {path}):
            try:
                if CHROMIUM_POLICY in read_json(other):
                    found.append(other)
            except PolicyError as error:
                print(_("quorvel-cert: warning: {text}").format(text=error), file=sys.stderr)
    return found


def change(root, file, base64):
    """Has every user's browsers trust the certificate, in place of an earlier one, or no longer.

    `file` names the certificate's file, as Firefox is told; `base64` is its DER, as the Chromium
    family is told, or None to take back whatever was entered.
    """
    with only_run(root):
        browsers = [Certificates(path, CHROMIUM_TEMPLATE) for path in chromium_files(root)]
        for browser in browsers:
            browser.document = {CHROMIUM_POLICY: [base64]} if base64 else {}
        firefox = Certificates(file_below(root, FIREFOX_FILE), FIREFOX_TEMPLATE)
        firefox.change([str(file)], remove=base64 is None)
        for browser in [*browsers, firefox]:
            browser.write()
