#!/usr/bin/python3
"""quorvel-policy against a system image in a temporary folder. Usage: policy_test.py PACKAGING"""

import json
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PACKAGING = Path(sys.argv.pop(1))
CHROME = "etc/opt/chrome/policies/managed/quorvelserver.json"
FIREFOX = "etc/firefox/policies/policies.json"


class PolicyTest(unittest.TestCase):
    def setUp(self):
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.root / "bin").mkdir()
        shutil.copy(PACKAGING / "quorvel-policy", self.root / "bin")
        shutil.copytree(PACKAGING / "policies", self.root / "share/policies")

    def run_policy(self, *arguments):
        return subprocess.run([self.root / "bin/quorvel-policy", "--root", self.root, *arguments],
                              capture_output=True, text=True, check=False)

    def write(self, name, text):
        (self.root / name).parent.mkdir(parents=True, exist_ok=True)
        (self.root / name).write_text(text)

    def read(self, name):
        return json.loads((self.root / name).read_text())

    def test_enters_a_site_once_beside_what_others_set_and_takes_it_out_again(self):
        others = {"policies": {"DisableTelemetry": True,
                               "LocalNetworkAccess": {"SkipDomains": ["other.example"]}}}
        self.write(FIREFOX, json.dumps(others))
        for _ in range(2):
            self.assertEqual(self.run_policy("Portal.example:8443", "https://[*.]b.example/").returncode, 0)
        sites = ["https://portal.example:8443", "https://[*.]b.example"]
        self.assertEqual(self.read(CHROME), {"LocalNetworkAccessAllowedForUrls": sites,
                                             "LoopbackNetworkAllowedForUrls": sites})
        self.assertEqual(self.read(FIREFOX)["policies"]["LocalNetworkAccess"]["SkipDomains"],
                         ["other.example", "portal.example", "*.b.example"])
        self.assertEqual(self.run_policy("--remove", *sites).returncode, 0)
        self.assertEqual(self.read(FIREFOX), others)
        self.assertFalse((self.root / CHROME).exists())

    def test_refuses_what_is_no_https_site_or_no_policy_file_and_writes_nothing(self):
        for site in ("http://portal.example", "https://portal.example/path", "a b", ""):
            self.assertEqual(self.run_policy(site).returncode, 1, site)
        for broken in ("{", "[]", '{"policies": []}'):
            self.write(FIREFOX, broken)
            result = self.run_policy("portal.example")
            self.assertEqual(result.returncode, 1, broken)
            self.assertIn(FIREFOX, result.stderr)
        self.assertFalse((self.root / CHROME).exists())

    def test_warns_of_another_file_that_sets_the_same_policy(self):
        rival = CHROME.replace("quorvelserver", "organisation")
        self.write(rival, '{"LoopbackNetworkAllowedForUrls": []}')
        self.assertIn(rival, self.run_policy("portal.example").stderr)


unittest.main()
