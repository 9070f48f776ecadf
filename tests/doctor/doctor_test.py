#!/usr/bin/python3
"""quorvel-doctor on a copy of the installed service. Usage: doctor_test.py STAGE READERS"""

import http.client
import json
import os
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import unittest.mock
from pathlib import Path

STAGE, READERS = Path(sys.argv.pop(1)), Path(sys.argv.pop(1))
sys.dont_write_bytecode = True
sys.path.insert(0, str(STAGE / "libexec"))
os.environ["LANGUAGE"] = "C"
# pylint: disable=wrong-import-position
from quorvel.doctor import readers, report, settings, tls, unit
from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding, exit_status
from quorvel.doctor.machine import Machine, run
from quorvel.doctor.process import service_process
from quorvel.doctor.redaction import redact

INI = "bin/quorvel_service.ini"
UNIT = {"LoadState": "loaded", "ActiveState": "active", "SubState": "running", "UnitFileState": "enabled",
        "NRestarts": "0", "MainPID": "1", "NeedDaemonReload": "no", "InvocationID": "1"}


# What may stand in an originN, each for a host of its own, and the one spelling of it.
SITES = (
    ("https://{}", "https://{}"), ("http://{}", "http://{}"), ("HTTPS://{}", "https://{}"), ("https://{}:443", "https://{}"),
    ("http://{}:80", "http://{}"), ("https://{}:80", "https://{}:80"), ("http://{}:443", "http://{}:443"),
    ("https://{}:1", "https://{}:1"), ("https://{}:65535", "https://{}:65535"), ("https://*.{}", "https://*.{}"),
    ("https://*.{}:8443", "https://*.{}:8443"), ("http://*.{}:80", "http://*.{}"), ("https://X-1.{}", "https://x-1.{}"),
    ("https://-x.{}", "https://-x.{}"), ("https://x_y.{}", "https://x_y.{}"), ("https://1.{}", "https://1.{}"),
    ("https://xn--fiqs8s.{}", "https://xn--fiqs8s.{}"), (f"https://{'x' * 63}.{{}}", f"https://{'x' * 63}.{{}}"),
    ("https://host", "https://host"), ("https://1.2.3.4:1", "https://1.2.3.4:1"), ("https://[0::2]", "https://[::2]"),
    ("https://[::A]:8443", "https://[::a]:8443"), ("chrome-extension://abcdefgh", "chrome-extension://abcdefgh"))
# What may not, each as if for pages of https://{}.
NO_SITES = (
    "", "*", "null", "{}", "//{}", "https:{}", "https:/{}", "https://", "https://*", "https://{}/", "https://{}/path", "https://{}?",
    "https://{}#", "https://{}\\", " https://{}", "https://{} ", "https://{}\t", "https:// {}", "https://{}:", "https://{}:0", "https://{}:0443",
    "https://{}:65536", "https://{}:443x", "https://{}:-1", "https://{}:+443", "https://{}:443:443", "https://u@{}", "https://{}.", "https://.{}",
    "https://a..{}", "https://[*.]{}", "https://*.*.{}", "https://a*.{}", "https://*{}", "ftp://{}", "wss://{}", "https://{},https://a",
    "https://é.{}", "https://%41.{}", f"https://{'x' * 64}.{{}}", "https://[::g]", "https://[::1", "https://::1", "https://1.2.3",
    "https://1.2.3.256", "https://*.1.2.3.4", "https://*.[::1]")


def for_hosts(rows):
    """The rows, each with a host of its own."""
    return [[text.format(f"h{number}.example") for text in row] for number, row in enumerate(rows)]


class DoctorTest(unittest.TestCase):
    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.stage = self.folder / "program"
        shutil.copytree(STAGE, self.stage, symlinks=True)
        self.port = self.free_port()
        self.write_ini("lib1=libquorveldemo.so")

    def free_port(self):
        """Other tests know it as taken by the UDP socket of the same number."""
        while True:
            mark = self.enterContext(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
            try:
                mark.bind(("127.0.0.1", random.randrange(10000, 32000)))
                with socket.create_server(mark.getsockname()):
                    return mark.getsockname()[1]
            except OSError:
                pass

    def write_ini(self, register, more=""):
        (self.stage / INI).write_text(f"[REGISTER]\n{register}\n[SERVER]\nlocalport={self.port}\n"
                                      f"[ACCESS]\nlisten=loopback\n{more}")

    def start(self, *options):
        subprocess.run([self.stage / "bin/quorvelserver", *options], cwd=self.stage, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        service = service_process(self.stage / "bin/quorvelserver").number
        self.addCleanup(os.kill, service, signal.SIGKILL)
        subprocess.run([self.stage / "libexec/await-answer"], check=True, env={"MAINPID": str(service)})
        return service

    def examine(self, *arguments):
        result = subprocess.run([self.stage / "bin/quorvel-doctor", "--json", *arguments], text=True,
                                capture_output=True, check=False, env={**os.environ, "LANG": "zh_CN.UTF-8"})
        answer = json.loads(result.stdout)
        self.assertEqual(result.returncode, answer["exitStatus"], result.stderr)
        return result.returncode, [Finding(**finding) for finding in answer["checks"]]

    def expect(self, found, check, level, text):
        findings = list(found)
        met = [finding for finding in findings if finding.check == check and finding.level == level]
        self.assertTrue(any(text in finding.text + finding.cure for finding in met),
                        f"{check} {level} {text!r} is not in {findings}")

    def stand_in(self, name, script):
        """Puts a command in front of the real one of that name."""
        folder = self.folder / "commands"
        folder.mkdir(exist_ok=True)
        (folder / name).write_text(f"#!/bin/sh\n{script}\n")
        (folder / name).chmod(0o755)
        self.enterContext(unittest.mock.patch.dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}"))

    def machine(self):
        root = self.folder / "root"
        (root / "run/systemd/system").mkdir(parents=True, exist_ok=True)
        return Machine(self.stage, root)

    def test_a_service_in_order_gets_no_complaint_and_a_changed_file_and_a_hang_are_told(self):
        service = self.start()
        status, findings = self.examine()
        self.assertEqual(status, exit_status(findings), findings)
        self.assertFalse([finding for finding in findings if finding.level in (WARNING, FAULT)
                          and finding.check.partition(".")[0] in ("port", "settings", "libraries", "tls")])
        self.expect(findings, "port.answer", OK, "ms")
        self.expect(findings, "port.access", OK, "Only this machine")
        self.expect(findings, "libraries.state", OK, "cardpresent")
        self.write_ini("lib1=libquorveldemo.so")
        os.utime(self.stage / INI, (time.time() + 5,) * 2)
        status, findings = self.examine("--site", "https://portal.example.org")
        self.expect(findings, "settings.age", WARNING, "restart")
        self.expect(findings, "browsers.access", OK, "admits")
        self.assertGreaterEqual(status, 1)
        os.kill(service, signal.SIGSTOP)
        _status, findings = self.examine()
        self.expect(findings, "port.answer", FAULT, "")
        # Loaded beside the service, a library would take its reader.
        self.expect(findings, "libraries.state", UNCHECKED, "does not tell of them")

    def test_a_site_that_the_service_refuses_is_told(self):
        self.write_ini("lib1=libquorveldemo.so", "origin1=https://portal.example.org\n")
        self.start()
        _status, findings = self.examine("--site", "https://other.example.org", "--site", "no site")
        self.expect(findings, "browsers.access", FAULT, "quorvel-policy https://other.example.org")
        self.expect(findings, "browsers.site", FAULT, "no site")

    def sites(self, texts):
        result = subprocess.run([self.stage / "bin/quorvel-settings", "--sites", *texts], stdout=subprocess.PIPE, check=False)
        return result.returncode, [site.get("origin") for site in json.loads(result.stdout)["sites"]]

    def admits(self, origin):
        page = http.client.HTTPConnection("127.0.0.1", self.port)
        page.request("GET", "/", headers={"Upgrade": "websocket", "Connection": "Upgrade", "Origin": origin, "Sec-WebSocket-Version": "13",
                                          "Sec-WebSocket-Key": "AAAAAAAAAAAAAAAAAAAAAA==", "Sec-WebSocket-Protocol": "ws"})
        self.addCleanup(page.close)
        return {101: True, 403: False}[page.getresponse().status]

    def test_policy_and_service_take_the_same_for_a_site(self):
        rows = for_hosts(SITES)
        self.assertEqual(self.sites(text for text, _origin in rows), (0, [origin for _text, origin in rows]))
        lines = [f"origin{number}={text}\n" for number, (text, _origin) in enumerate(rows, 1)]
        self.write_ini("lib1=libquorveldemo.so", "".join(lines) + "origin50=https://portal.example/\n")
        policy = [self.stage / "bin/quorvel-policy", "--root", self.folder]
        told = [subprocess.run([*policy, *site], capture_output=True, text=True, check=True).stderr
                for site in ((), ("https://portal.example/",))]
        self.assertIn("https://portal.example/: no origin", told[0])
        self.assertEqual(told[1], "")
        self.start()
        for origin in [origin for _text, origin in rows] + ["https://portal.example"]:
            self.assertTrue(self.admits(origin.replace("*", "x")), origin)
        self.assertFalse(self.admits("https://portal.example:1"))

    def test_neither_takes_anything_else(self):
        rows = for_hosts((text, "https://{}") for text in NO_SITES)
        self.assertEqual(self.sites(text for text, _page in rows), (1, [None] * len(rows)))
        self.write_ini("lib1=libquorveldemo.so", "".join(f"origin{number}={text}\n" for number, (text, _page) in enumerate(rows, 1)))
        self.start()
        for text, page in rows:
            self.assertFalse(self.admits(page), text)

    def test_the_wait_at_the_start_ends_with_a_refusal_by_http_and_not_with_other_words(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.settimeout(30)
            wait = subprocess.Popen([self.stage / "libexec/await-answer"], env={"MAINPID": str(os.getpid())})
            self.addCleanup(wait.kill)
            for words in (b"SSH-2.0-x 403 x\r\n", b"HTTP/1.1 403 Forbidden\r\n\r\n"):
                self.assertIsNone(wait.poll())
                with server.accept()[0] as connection:
                    connection.recv(1000)
                    connection.sendall(words)
            self.assertEqual(wait.wait(), 0)

    def test_each_fault_of_files_is_named_with_its_cure(self):
        (self.stage / "bin/broken.so").write_text("no library" * 100)
        for name in ("unresolved.so", "init_fails.so"):
            shutil.copy(READERS / name, self.stage / "bin")
        shutil.copy(self.stage / "bin/libquorveldemo.so", self.stage / "bin/another.so")
        server = f"[SERVER]\nlocalport={self.port}\n"
        rows = (
            (INI, f"[REGISTER]\nlib2 =x.so\n{server}", "settings.service_ini", WARNING, "write lib2=..."),
            (INI, "[SERVER]\nLocalPort=1\n", "settings.service_ini", FAULT, "localport=47392"),
            (INI, f"[REGISTER]\nlib1={'a' * 200}.so\n{server}", "settings.service_ini", FAULT, "199"),
            (INI, server.encode("utf-16"), "settings.service_ini", FAULT, "UTF-16"),
            (INI, b"\xef\xbb\xbf" + server.encode(), "settings.service_ini", WARNING, "byte-order mark"),
            (INI, f"{server}[ACCESS]\norigin1=a b\n", "settings.service_ini", FAULT, "no origin"),
            (INI, server, "libraries.state", FAULT, "lib1=FILE.so"),
            (INI, f"[REGISTER]\nlib1=/nowhere/x.so\n{server}", "libraries.state", FAULT, "no such file"),
            (INI, f"[REGISTER]\nlib1=broken.so\n{server}", "libraries.state", FAULT, "no shared object"),
            (INI, f"[REGISTER]\nlib1=unresolved.so\n{server}", "libraries.state", FAULT, "does not fit"),
            (INI, f"[REGISTER]\nlib1=init_fails.so\n{server}", "libraries.state", FAULT, "quorvel-libcheck"),
            (INI, f"[REGISTER]\nlib1=another.so\nlib2=libquorveldemo.so\n{server}", "libraries.overlap",
             WARNING, "cardpresent"),
            ("bin/quorvel.ini", "[SERVER]\nSERVER_IP=1.2.3.4\n", "settings.server_ini", FAULT, "SERVER_PORT="),
            ("bin/quorvel.ini", "[SERVER]\nSERVER_IP=host\nSERVER_PORT=1\n", "settings.server_ini", WARNING, "IPv4"),
            ("mount-origin/index.html", None, "installation.files", FAULT, "index.html"),
        )
        for name, content, check, level, text in rows:
            path = self.stage / name
            kept = path.read_bytes()
            path.unlink()
            if content is not None:
                path.write_bytes(content if isinstance(content, bytes) else content.encode())
            with self.subTest(text):
                self.expect(self.examine()[1], check, level, text)
            path.write_bytes(kept)
        (self.stage / "bin/quorvelserver").chmod(0o757)
        self.expect(self.examine()[1], "installation.modes", FAULT, "chmod o-w")

    def test_who_has_the_port_is_named(self):
        with socket.create_server(("127.0.0.1", self.port)):
            status, findings = self.examine()
        self.assertEqual(status, 2)
        self.expect(findings, "port.owner", FAULT, f", {os.getpid()}, ")

    def test_options_without_effect_are_told(self):
        machine = self.machine()
        machine.path("/etc/default").mkdir(parents=True)
        machine.path("/etc/default/quorvelserver").write_text('QUORVEL_OPTIONS="--tls -d x"\nQUORVEL_OPTION="-s"\n')
        options, faults = settings.read_options(machine)
        seen, reason = settings.read_settings(machine, options)
        findings = list(settings.check_settings(machine, None, seen, reason, options, faults))
        for text in ("--tls", '"x"', "QUORVEL_OPTION means nothing"):
            self.expect(findings, "settings.options", WARNING, text)

    def test_states_of_the_unit(self):
        rows = (({}, "unit.restarts", OK, ""),
                ({"NRestarts": "3"}, "unit.restarts", WARNING, "3 times"),
                ({"UnitFileState": "disabled"}, "unit.enabled", WARNING, "systemctl enable"),
                ({"LoadState": "masked", "UnitFileState": "masked"}, "unit.enabled", FAULT, "unmask"),
                ({"LoadState": "not-found"}, "unit.running", UNCHECKED, "not-found"),
                ({"ActiveState": "failed"}, "unit.running", FAULT, "systemctl start"),
                ({"ActiveState": "activating"}, "unit.running", FAULT, "again and again"),
                ({"ActiveState": "failed"}, "unit.errors", WARNING, "端口被占用"))
        message = json.dumps({"PRIORITY": "3", "MESSAGE": list("端口被占用".encode("gbk"))})
        self.stand_in("journalctl", f"echo '{message}'")
        for change, check, level, text in rows:
            properties = "\n".join(f"{key}={value}" for key, value in {**UNIT, **change}.items())
            self.stand_in("systemctl", f"cat <<'.'\n{properties}\n.")
            findings = list(unit.check_unit(unit.read_unit(self.machine())))
            self.expect(findings, check, level, text)

    def test_certificates(self):
        for name in ("one", "two"):
            run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                self.folder / f"{name}.key", "-out", self.folder / f"{name}.cert", "-subj", "/CN=x", "-days", "10",
                "-addext", "subjectAltName=DNS:localhost")
        one, two, key = (self.folder / name for name in ("one.cert", "two.cert", "one.key"))
        for check, level, text in ((tls.check_pair(one, key), OK, "belong together"),
                                   (tls.check_pair(two, key), FAULT, "--force"),
                                   (tls.check_pair(self.folder / "none", key), FAULT, "none"),
                                   (tls.check_names(one), WARNING, "127.0.0.1, ::1"),
                                   (tls.check_dates(one), WARNING, "expires on"),
                                   (tls.check_system(self.machine(), one), WARNING, "--trust")):
            findings = list(check)
            self.expect(findings, findings[0].check, level, text)
        for days, text in ((11, "expired on"), (-1, "clock")):
            with unittest.mock.patch("time.time", return_value=time.time() + days * tls.DAY_SECONDS):
                self.expect(tls.check_dates(one), "tls.dates", FAULT, text)

    def test_tls_in_use_is_looked_at_to_the_browsers(self):
        subprocess.run([self.stage / "bin/quorvel-cert", "--dir", self.stage], check=True, stdout=subprocess.DEVNULL)
        self.start("-s")
        _status, findings = self.examine()
        for check in ("tls.pair", "tls.names", "tls.dates", "port.answer", "libraries.state"):
            self.expect(findings, check, OK, "")
        self.expect(findings, "tls.system", WARNING, "--trust")

    def test_nothing_hangs(self):
        began = time.monotonic()
        outcome = run("sh", "-c", "sleep 120 & sleep 120", seconds=0.5)
        self.assertIn("did not end within", outcome.complaint)
        self.assertLess(time.monotonic() - began, 100)

    def test_pcsc_refusals(self):
        for error, level in ((readers.NO_READERS, WARNING), (0x8010001D, FAULT), (readers.SECURITY_VIOLATION, None)):
            finding = readers.refused(self.machine(), {"call": "SCardListReaders", "error": error})
            self.assertIn(finding.level, (level,) if level else (FAULT, UNCHECKED))
            self.assertTrue(finding.cure)

    def test_the_report_tells_nothing_of_people(self):
        secret = ("张三丰", "110101199003078515", "13800138000", "/home/zhangsan", "10.20.30.40", "fe80::1234:5678",
                  "aa:bb:cc:dd:ee:ff", socket.gethostname())
        line = " ".join(secret[1:])
        messages = [{"PRIORITY": "3", "MESSAGE": f"lib failed {line} 127.0.0.1"},
                    {"PRIORITY": "6", "MESSAGE": f"card of {secret[0]}"}]
        self.stand_in("journalctl", 'case "$*" in *--priority=5*) limit=5;; esac\n' + "\n".join(
            f"[ {message['PRIORITY']} -gt $limit ] || echo '{json.dumps(message)}'" for message in messages))
        self.stand_in("systemctl", "echo '# comment'")
        (self.stage / "bin/quorvel.ini").write_text(f"; {line}\n")
        file = self.folder / "report.txt"
        report.write_report(file, self.machine(), [Finding("a", FAULT, line, line)], "1")
        text = file.read_text()
        self.assertIn("lib failed <number>", text)
        self.assertIn("127.0.0.1", text)
        self.assertEqual([word for word in secret if word in text], [])
        self.assertEqual(file.stat().st_mode & 0o777, 0o600)
        self.assertEqual(redact("2026-11-23 11:08:04 [2026/11/23 11:27:26:4294] port 47392 ::1"),
                         "2026-11-23 11:08:04 [2026/11/23 11:27:26:4294] port 47392 ::1")


unittest.main()
