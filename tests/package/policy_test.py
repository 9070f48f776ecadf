#!/usr/bin/python3
"""quorvel-policy against a system image in a temporary folder. Usage: policy_test.py STAGE"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

STAGE = Path(sys.argv.pop(1))
CHROME = "etc/opt/chrome/policies/managed/quorvelserver.json"
FIREFOX = "etc/firefox/policies/policies.json"
SERVICE = "bin/quorvel_service.ini"


class PolicyTest(unittest.TestCase):
    def setUp(self):
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.root / "bin").mkdir()
        for name in ("quorvel-policy", "quorvel-settings", "quorvel_service.ini"):
            shutil.copy(STAGE / "bin" / name, self.root / "bin")
        for folder in ("libexec/policy", "libexec/quorvel", "share/policies"):
            shutil.copytree(STAGE / folder, self.root / folder)

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
        rival = CHROME.replace("quorvelserver", "organisation")
        self.write(rival, '{"LoopbackNetworkAllowedForUrls": []}')
        longest = "x" * 63 + ".example"
        for _ in range(2):
            result = self.run_policy("Portal.example:65535", "https://[*.]b.example/", "1.2.3.4:1", longest)
            self.assertEqual(result.returncode, 0)
            self.assertIn(rival, result.stderr)
        sites = ["https://portal.example:65535", "https://[*.]b.example", "https://1.2.3.4:1", f"https://{longest}"]
        self.assertEqual(self.read(CHROME), {"LocalNetworkAccessAllowedForUrls": sites,
                                             "LoopbackNetworkAllowedForUrls": sites})
        self.assertEqual(self.read(FIREFOX)["policies"]["LocalNetworkAccess"]["SkipDomains"],
                         ["other.example", "portal.example", "*.b.example", "1.2.3.4", longest])
        self.assertEqual(self.run_policy("--remove", *sites).returncode, 0)
        self.assertEqual(self.read(FIREFOX), others)
        self.assertFalse((self.root / CHROME).exists())

    def test_refuses_what_is_no_https_site_or_no_policy_file_and_writes_nothing(self):
        for site in ("https://portal.example/path", "a b", "", "[*.]1.2.3.4", "a\udcff"):
            result = self.run_policy("b", site)
            self.assertEqual(result.returncode, 1, site)
            self.assertIn("write it as the browser sends it", result.stderr)
        self.assertEqual(self.run_policy("portal.example", "--functions", "a;[b]").returncode, 1)
        for wrong in (["--functions", "a"], ["--ask-in-firefox"], ["--remove", "--functions", "a", "portal.example"]):
            self.assertEqual(self.run_policy(*wrong).returncode, 2, wrong)
        for broken in ("{", "[]", '{"policies": []}'):
            self.write(FIREFOX, broken)
            result = self.run_policy("portal.example")
            self.assertEqual(result.returncode, 1, broken)
            self.assertIn(FIREFOX, result.stderr)
        (self.root / FIREFOX).unlink()
        (self.root / SERVICE).write_bytes(b"a\0\n[ACCESS]\n")
        self.assertIn("zero byte", self.run_policy("portal.example").stderr)
        (self.root / SERVICE).unlink()
        self.assertIn("install the service", self.run_policy("portal.example").stderr)
        os.mkfifo(self.root / SERVICE)
        self.assertIn("not a plain file", self.run_policy("portal.example").stderr)
        self.assertFalse((self.root / CHROME).exists())
        missing = self.root / "missing"
        self.assertEqual(self.run_policy("--root", missing, "portal.example").returncode, 1)
        self.assertFalse(missing.exists())

    def test_keeps_every_other_byte_of_the_service_file_and_reads_it_as_the_service_does(self):
        section, crlf = b";\xd6\xd0\n[ACCESS]\nlisten=loopback\n", b";\xd6\xd0\r\n[LOG]\r\ncharset=gbk"
        one = section + b"origin1=https://a\n"
        remove_a = ["--remove", "HTTPS://A:443/"]
        for before, arguments, after in (
                (section, ["a"], one), (one, ["https://a:443"], one), (one, remove_a, section),
                (crlf, ["a:8443"], crlf + b"\r\n\r\n[ACCESS]\r\norigin1=https://a:8443\r\n"),
                (one, ["a", "--functions", "x, y"], one + b"functions1=x y\n"),
                (one + b"functions1=z\n;\n", ["a", "--functions", "x"], one + b"functions1=x\n;\n"),
                (one + b"functions1=z\n", ["a"], one + b"functions1=z\n"),
                (one + b"functions1=z\n[X]", remove_a, section + b"[X]"),
                (one + b"functions2=left\n", ["http://[*.]b"], one + b"functions2=left\norigin3=http://*.b\n"),
                (b"[ACCESS]\norigin1=https://a\n[ACCESS] \n" + section + b"\n[X]", ["a"],
                 b"[ACCESS]\norigin1=https://a\n[ACCESS] \n" + one + b"\n[X]"),
                (one.replace(b"a", b"[::1]"), ["a"], one.replace(b"a", b"[::1]") + b"origin2=https://a\n"),
                (one.replace(b"//a", b"//a "), ["a"], one.replace(b"//a", b"//a ") + b"origin2=https://a\n"),
                (one.replace(b"//a", b"//A:443/"), ["a"], one), (one.replace(b"//a", b"//a/"), remove_a, section),
                (one + b"origin1=https://b", ["a"], one + b"origin1=https://b\norigin2=https://a\n"),
                (one + b"origin1=https://b", ["--remove", "b"], section),
                (b";" * 255 + b"[ACCESS]\n", ["a"], b";" * 255 + b"[ACCESS]\norigin1=https://a\n")):
            (self.root / SERVICE).write_bytes(before)
            for _ in range(2):
                self.assertEqual(self.run_policy(*arguments).returncode, 0)
                self.assertEqual((self.root / SERVICE).read_bytes(), after, arguments)

    def test_enters_as_many_sites_as_the_service_takes_in_lines_that_it_reads_whole(self):
        self.assertEqual(self.run_policy(*(f"s{number}" for number in range(50))).returncode, 0)
        full = (self.root / SERVICE).read_bytes()
        for extra in (["s50"], ["s0", "--functions", "x" * 250]):
            self.assertIn(SERVICE, self.run_policy(*extra).stderr)
        self.assertEqual((self.root / SERVICE).read_bytes(), full)

    def test_keeps_owner_and_mode_of_the_service_file_and_lets_browsers_read_theirs(self):
        os.chmod(self.root / SERVICE, 0o640)
        owner = (1, 1) if os.geteuid() == 0 else (os.geteuid(), os.getegid())
        os.chown(self.root / SERVICE, *owner)
        self.assertEqual(self.run_policy("a", umask=0o077).returncode, 0)
        status = (self.root / SERVICE).stat()
        self.assertEqual((status.st_mode & 0o777, status.st_uid, status.st_gid), (0o640, *owner))
        for path in (self.root / "etc").rglob("*"):
            self.assertEqual(path.stat().st_mode & 0o777, 0o755 if path.is_dir() else 0o644, path)

    def test_lists_both_sides_and_says_where_they_differ_and_what_changes_for_others(self):
        self.write(CHROME, '{"LocalNetworkAccessAllowedForUrls": ["https://old"], "LoopbackNetworkAllowedForUrls": ["https://old"]}')
        self.assertIn("every site", self.run_policy().stdout)
        self.assertIn("https://old stands in the browsers' policies", self.run_policy("http://a").stderr)
        listed = self.run_policy().stdout
        self.assertRegex(listed, f"(?m)^https://old is missing in .*{FIREFOX}, .*{SERVICE}$")
        self.assertNotIn("http://a is missing", listed)
        self.assertEqual(self.run_policy("http://a.b", "http://*.a").stderr.count("stands before"), 0)
        self.assertIn("http://*.a stands before http://b.a", self.run_policy("http://b.a", "--functions", "x").stderr)
        self.run_policy("--remove", "http://a.b", "http://b.a", "http://*.a")
        self.run_policy("old", "--functions", "读卡 x")
        self.assertIn("http://a, https://old (读卡 x)", self.run_policy().stdout)
        self.assertIn("names no site any more", self.run_policy("--remove", "old", "http://a").stderr)

    def test_has_firefox_ask_until_the_last_site_is_removed(self):
        self.write(FIREFOX, '{"policies": {"Preferences": {"x.y": {"Value": 1}}}}')
        self.run_policy("a", "b", "--ask-in-firefox")
        for removed, asks in (("c", True), ("a", True), ("b", False)):
            self.run_policy("--remove", removed)
            self.assertEqual("network.lna.websocket.enabled" in self.read(FIREFOX)["policies"]["Preferences"], asks)
        self.assertEqual(self.read(FIREFOX), {"policies": {"Preferences": {"x.y": {"Value": 1}}}})

    def test_runs_at_once_lose_no_site_and_leave_no_other_file(self):
        sites = [f"https://site{number}.example" for number in range(12)]
        for run in [subprocess.Popen(self.command(site), stdout=subprocess.DEVNULL) for site in sites]:
            self.assertEqual(run.wait(), 0)
        self.assertEqual(sorted(self.read(CHROME)["LoopbackNetworkAllowedForUrls"]), sorted(sites))
        self.assertEqual((self.root / SERVICE).read_text().count("=https://site"), len(sites))
        left = {path.name for folder in ("bin", "etc", "libexec") for path in (self.root / folder).rglob("*") if path.is_file()}
        self.assertEqual({name for name in left if not name.endswith(".py")},
                         {"quorvelserver.json", "policies.json", "quorvel_service.ini", "quorvel-policy", "quorvel-settings"})

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

    @unittest.skipIf(subprocess.run(["unshare", "--map-root-user", "--mount", "true"], check=False).returncode, "no namespaces")
    def test_names_the_restart_when_this_machines_service_has_something_to_take_up(self):
        (self.root / "etc").mkdir()
        # The machine's own policies stay out of it.
        for arguments, restarts in ((["a"], True), (["a"], False), (["--remove", "a"], True), (["--root", self.root, "b"], False)):
            result = subprocess.run(["unshare", "--map-root-user", "--mount", "sh", "-ec", 'mount --bind "$0/etc" /etc; exec "$0/bin/quorvel-policy" "$@"',
                                     self.root, *arguments], capture_output=True, text=True, check=True)
            self.assertEqual("systemctl restart quorvelserver" in result.stdout, restarts, arguments)

    def test_tells_a_plain_user_what_to_do(self):
        (self.root / "etc").mkdir(mode=0o555)
        self.root.chmod(0o755)
        user = {"user": 65534} if os.geteuid() == 0 else {}
        result = self.run_policy("portal.example", **user)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, "run this with sudo")


unittest.main()
