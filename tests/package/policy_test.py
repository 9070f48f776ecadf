#!/usr/bin/python3
"""quorvel-policy against a system image in a temporary folder. Usage: policy_test.py PACKAGING"""

import json
import os
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

    def command(self, *arguments):
        return [self.root / "bin/quorvel-policy", "--root", self.root, *arguments]

    def run_policy(self, *arguments, **options):
        return subprocess.run(self.command(*arguments), capture_output=True, text=True, check=False,
                              **options)

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
        for site in ("http://portal.example", "https://portal.example/path", "a b", "", "x..y", "https://-x.example",
                     ".example", "x" * 64, "x.y" * 85, "portal.example:0", "portal.example:65536",
                     "1.2.3", "1.2.3.256", "[*.]1.2.3.4"):
            self.assertEqual(self.run_policy(site).returncode, 1, site)
        for broken in ("{", "[]", '{"policies": []}'):
            self.write(FIREFOX, broken)
            result = self.run_policy("portal.example")
            self.assertEqual(result.returncode, 1, broken)
            self.assertIn(FIREFOX, result.stderr)
        self.assertFalse((self.root / CHROME).exists())
        missing = self.root / "missing"
        self.assertEqual(self.run_policy("--root", missing, "portal.example").returncode, 1)
        self.assertFalse(missing.exists())

    def test_takes_hosts_and_ports_up_to_their_limits(self):
        sites = [f"https://{site}" for site in ("a", "x" * 63 + ".example", "1.2.3.4:1", "portal.example:65535")]
        self.assertEqual(self.run_policy(*sites).returncode, 0)
        self.assertEqual(self.read(CHROME)["LoopbackNetworkAllowedForUrls"], sites)

    def test_runs_at_once_lose_no_site_and_leave_no_other_file(self):
        sites = [f"https://site{number}.example" for number in range(12)]
        for run in [subprocess.Popen(self.command(site), stdout=subprocess.DEVNULL) for site in sites]:
            self.assertEqual(run.wait(), 0)
        self.assertEqual(sorted(self.read(CHROME)["LoopbackNetworkAllowedForUrls"]), sorted(sites))
        left = {path.name for path in (self.root / "etc").rglob("*") if path.is_file()}
        self.assertEqual(left, {"quorvelserver.json", "policies.json"})

    def test_browsers_can_read_the_files_whatever_the_umask(self):
        self.assertEqual(self.run_policy("portal.example", umask=0o077).returncode, 0)
        for path in (self.root / "etc").rglob("*"):
            self.assertEqual(path.stat().st_mode & 0o777, 0o755 if path.is_dir() else 0o644, path)

    def test_writes_through_a_link_within_the_system_and_refuses_one_that_leads_out(self):
        self.write("srv/policies.json", '{"policies": {"DisableTelemetry": true}}')
        link = self.root / FIREFOX
        link.parent.mkdir(parents=True)
        link.symlink_to(self.root / "srv/policies.json")
        self.assertEqual(self.run_policy("portal.example").returncode, 0)
        self.assertTrue(link.is_symlink())
        self.assertEqual(sorted(self.read("srv/policies.json")["policies"]), ["DisableTelemetry", "LocalNetworkAccess"])
        link.unlink()
        with tempfile.NamedTemporaryFile("w+") as outside:
            link.symlink_to(outside.name)
            result = self.run_policy("other.example")
            self.assertEqual((result.returncode, outside.read()), (1, ""))
        self.assertIn("leads out of", result.stderr)
        self.assertNotIn("https://other.example", self.read(CHROME)["LoopbackNetworkAllowedForUrls"])

    def test_tells_a_plain_user_what_to_do(self):
        (self.root / "etc").mkdir(mode=0o555)
        self.root.chmod(0o755)
        user = {"user": 65534} if os.geteuid() == 0 else {}
        result = self.run_policy("portal.example", **user)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, "run this with sudo")

    def test_warns_of_another_file_that_sets_the_same_policy(self):
        rival = CHROME.replace("quorvelserver", "organisation")
        self.write(rival, '{"LoopbackNetworkAllowedForUrls": []}')
        self.assertIn(rival, self.run_policy("portal.example").stderr)


unittest.main()
