"""The browsers' managed policies: who may connect to this machine without a question.

Which policies a site belongs in, the ready-made files say: every list in them receives the sites.
"""

import copy
import json
import sys

from policy.files import file_below, replace_file
from policy.sites import PolicyError
from quorvel.language import _

# Folders of the Chromium family: each browser reads every *.json file of its own folder. A folder
# of a browser that is not installed does no harm and serves when it is.
CHROMIUM_FOLDERS = (
    "etc/chromium/policies/managed",
    "etc/chromium-browser/policies/managed",
    "etc/opt/chrome/policies/managed",
    "etc/opt/edge/policies/managed",
)
CHROMIUM_FILE = "quorvelserver.json"
# Firefox reads this one file, which may hold the organisation's other policies.
FIREFOX_FILE = "etc/firefox/policies/policies.json"
# Without it Firefox lets the page of any site open a WebSocket to this machine.
PREFERENCE = "network.lna.websocket.enabled"
LOCKED_ON = {"Value": True, "Status": "locked"}


def warn(text):
    print(_("quorvel-policy: warning: {text}").format(text=text), file=sys.stderr)


def read_json(path):
    """Returns the object in the file, or an empty one when there is no file."""
    try:
        document = json.loads(path.read_text(encoding="utf-8"))
    except FileNotFoundError:
        return {}
    except ValueError as error:
        raise PolicyError(_("{path} is not valid JSON ({reason}); repair it and run this "
                            "again").format(path=path, reason=error))
    if not isinstance(document, dict):
        raise PolicyError(_("{path} does not hold a JSON object; repair it and run this "
                            "again").format(path=path))
    return document


class Policies:
    """One browser's file, in memory until it is written."""

    def __init__(self, path, template):
        self.path = path
        self.document = read_json(path)
        self._before = copy.deepcopy(self.document)
        self._template = template

    def spelling(self, site):
        return site.pattern

    def spellings(self, sites):
        return list(dict.fromkeys(self.spelling(site) for site in sites if site.in_browsers))

    def change(self, sites, remove):
        """Enters the sites, or removes them; those on http are nothing to the browser."""
        if self.spellings(sites):
            self._update(self.document, self._template, self.spellings(sites), remove)

    def entered(self):
        """Returns the sites, in the browser's spelling, that stand in every list."""
        lists = list(self._lists(self.document, self._template))
        return [name for name in lists[0]
                if isinstance(name, str) and all(name in names for names in lists)]

    def write(self):
        """Leaves a file alone that holds the same, and removes it when nothing is left."""
        if self.document == self._before:
            return
        if not self.document:
            self.path.unlink()
            return
        self.path.parent.mkdir(parents=True, exist_ok=True)
        text = json.dumps(self.document, indent=2, ensure_ascii=False) + "\n"
        replace_file(self.path, text.encode(), 0o644)

    def warn_of_rivals(self):
        """Names other files of the folder that set the same policy: Chromium takes only one."""
        for other in sorted(set(self.path.parent.glob("*.json")) - {self.path}):
            try:
                keys = self._template.keys() & read_json(other).keys()
            except PolicyError as error:
                warn(error)
                continue
            for key in sorted(keys):
                warn(_("{file} sets {policy} as well, and the browser takes only one of the two; "
                       "enter the sites there too").format(file=other, policy=key))

    def _child(self, document, key, kind):
        child = document.setdefault(key, kind())
        if not isinstance(child, kind):
            raise PolicyError(_("{path}: {key} is not of the kind that the browsers expect; repair "
                                "it and run this again").format(path=self.path, key=key))
        return child

    def _update(self, document, template, names, remove):
        """Enters the names into, or takes them out of, each list that the template names."""
        for key, value in template.items():
            child = self._child(document, key, type(value))
            if isinstance(value, dict):
                self._update(child, value, names, remove)
            elif remove:
                child[:] = [name for name in child if name not in names]
            else:
                child.extend(name for name in names if name not in child)
            if not child:
                del document[key]

    def _lists(self, document, template):
        for key, value in template.items():
            child = document.get(key, type(value)())
            if not isinstance(child, type(value)):
                child = type(value)()
            if isinstance(value, dict):
                yield from self._lists(child, value)
            else:
                yield child


class FirefoxPolicies(Policies):
    def spelling(self, site):
        return site.domain

    def change(self, sites, remove):
        """With the last site goes the preference of ask()."""
        super().change(sites, remove)
        if not remove or self.entered():
            return
        policies = self._child(self.document, "policies", dict)
        preferences = self._child(policies, "Preferences", dict)
        if preferences.get(PREFERENCE) == LOCKED_ON:
            del preferences[PREFERENCE]
        if not preferences:
            del policies["Preferences"]
        if not policies:
            del self.document["policies"]

    def warn_of_rivals(self):
        """Firefox reads no other file."""

    def ask(self):
        """Has Firefox put the question before the page of another site opens a WebSocket."""
        policies = self._child(self.document, "policies", dict)
        self._child(policies, "Preferences", dict)[PREFERENCE] = LOCKED_ON


def read_policies(root, templates):
    """Returns the Policies of every browser, as the system below the root has them."""
    chromium, firefox = (read_json(templates / f"{name}.json") for name in ("chromium", "firefox"))
    return [*(Policies(file_below(root, f"{folder}/{CHROMIUM_FILE}"), chromium)
              for folder in CHROMIUM_FOLDERS),
            FirefoxPolicies(file_below(root, FIREFOX_FILE), firefox)]
