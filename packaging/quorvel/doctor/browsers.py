"""One web site: whether browsers let its pages reach the service, and whether the service does."""

import shutil

from policy.browsers import PREFERENCE, read_policies
from policy.sites import PolicyError, parse_sites

from quorvel.doctor.answers import STATUS_REQUEST, ask
from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.language import _


# The browsers' commands, by a folder in the path of the policy file that they read.
COMMANDS = {
    "chromium": ("chromium",),
    "chromium-browser": ("chromium-browser",),
    "chrome": ("google-chrome", "google-chrome-stable"),
    "edge": ("microsoft-edge", "microsoft-edge-stable"),
    "firefox": ("firefox", "firefox-esr"),
}
# HTTP's number, which quorvel-call names in every language.
REFUSED = "403"


def covers(entered, spelling):
    """Whether a browser finds the site in the list: itself, or a pattern for all names below."""
    scheme, _slashes, rest = spelling.rpartition("//")
    for name in entered:
        pattern_scheme, _slashes, pattern = name.rpartition("//")
        star, _dot, domain = pattern.partition(".")
        if name == spelling:
            return True
        if star.strip("[]") == "*" and pattern_scheme == scheme and \
                ("." + rest).endswith("." + domain.lstrip("]")):
            return True
    return False


def is_installed(path):
    """Whether a browser is there that reads the policy file."""
    return any(shutil.which(command) for folder, commands in COMMANDS.items() if folder in path.parts
               for command in commands)


def asks(policies):
    """Whether the browser puts the question at all: Firefox does so when it is told to."""
    if policies.path.name != "policies.json":
        return True
    preferences = policies.document.get("policies", {}).get("Preferences", {})
    return preferences.get(PREFERENCE, {}).get("Value") is True


def check_policies(machine, site):
    found = [policies for policies in read_policies(machine.root, machine.program / "share" / "policies")
             if is_installed(policies.path)]
    if not found:
        yield Finding("browsers.policy", UNCHECKED, _("The browsers' policies: no browser is installed "
                      "for all users."))
    for policies in found:
        if not asks(policies):
            yield Finding("browsers.policy", OK, _("Firefox lets every site connect without a question."))
        elif covers(policies.entered(), policies.spelling(site)):
            yield Finding("browsers.policy", OK, _("{path} lets {site} connect without a question.").format(
                path=policies.path, site=site.origin))
        else:
            yield Finding("browsers.policy", WARNING,
                          _("{path} does not name {site}: that browser asks the user, or refuses.").format(
                              path=policies.path, site=site.origin),
                          f"sudo quorvel-policy {site.pattern}")


def check_handshake(visit, site):
    """Tries the service as a page of the site would."""
    if not visit.serves():
        yield Finding("browsers.access", UNCHECKED, _("Whether the service admits {site}: it does not "
                      "run.").format(site=site.origin))
        return
    outcome = ask(visit.machine, visit.port, visit.process, STATUS_REQUEST, "--origin", site.origin)
    reason = outcome.errors.strip().partition("\n")[0] or outcome.complaint
    if not outcome.output and REFUSED not in reason:
        yield Finding("browsers.access", UNCHECKED, _("Whether the service admits {site}: {reason}").format(
            site=site.origin, reason=reason))
    elif outcome.output:
        yield Finding("browsers.access", OK, _("The service admits pages of {site}.").format(
            site=site.origin))
    else:
        yield Finding("browsers.access", FAULT,
                      _("The service refuses pages of {site}: {reason}").format(
                          site=site.origin, reason=reason),
                      f"sudo quorvel-policy {site.pattern} && sudo systemctl restart quorvelserver")


def check_site(visit, text):
    try:
        site, = parse_sites([text])
    except PolicyError as error:
        yield Finding("browsers.site", FAULT, str(error))
        return
    if site.in_browsers:
        try:
            yield from check_policies(visit.machine, site)
        except PolicyError as error:
            yield Finding("browsers.policy", FAULT, str(error))
    else:
        yield Finding("browsers.policy", WARNING,
                      _("{site} is on http: browsers refuse it from public addresses.").format(
                          site=site.origin), _("Move the site to https."))
    yield from check_handshake(visit, site)
