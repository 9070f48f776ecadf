"""TLS: whether certificate and key serve, and who trusts them."""

import base64
import re
import ssl
import time

from quorvel.commands import load_command
from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.doctor.machine import run
from quorvel.language import _

REPLACE = "sudo quorvel-cert --force --trust"
DAY_SECONDS = 86400
SOON_DAYS = 30
HOSTS = (("-checkhost", "localhost"), ("-checkip", "127.0.0.1"), ("-checkip", "::1"))
SYSTEM_STORE = "/etc/ssl/certs"
VERIFY_REASON = re.compile(r" lookup: *(.*)")


def check_pair(certificate, key):
    of_certificate = run("openssl", "x509", "-in", certificate, "-noout", "-pubkey")
    if not of_certificate.good:
        missing = of_certificate.status is None
        yield Finding("tls.pair", UNCHECKED if missing else FAULT,
                      _("The certificate {path} can not be read: {reason}").format(
                          path=certificate, reason=of_certificate.complaint),
                      "sudo apt-get install openssl" if missing else REPLACE)
        return
    of_key = run("openssl", "pkey", "-in", key, "-pubout")
    if of_key.good and of_key.output == of_certificate.output:
        yield Finding("tls.pair", OK, _("Certificate and key belong together."))
    elif of_key.good:
        yield Finding("tls.pair", FAULT, _("The key {path} is not that of the certificate.").format(
            path=key), REPLACE)
    elif "Permission denied" in of_key.errors:
        yield Finding("tls.pair", UNCHECKED, _("Whether the key belongs to the certificate: only root "
                      "can read it."), "sudo quorvel-doctor")
    else:
        yield Finding("tls.pair", FAULT, _("The key {path} can not be read: {reason}").format(
            path=key, reason=of_key.complaint), REPLACE)


def check_names(certificate):
    missing = [name for option, name in HOSTS
               if "does match" not in run("openssl", "x509", "-in", certificate, "-noout", option,
                                          name).output]
    if missing:
        yield Finding("tls.names", WARNING, _("The certificate is not valid for {names}.").format(
            names=", ".join(missing)), _("Pages have to use a name that it is valid for, or: {command}")
                      .format(command=REPLACE))
    else:
        yield Finding("tls.names", OK, _("The certificate is valid for localhost, 127.0.0.1 and ::1."))


def check_dates(certificate):
    outcome = run("openssl", "x509", "-in", certificate, "-noout", "-startdate", "-enddate")
    try:
        begin, end = (ssl.cert_time_to_seconds(line.partition("=")[2])
                      for line in outcome.output.splitlines())
    except ValueError:
        yield Finding("tls.dates", UNCHECKED, _("The certificate's dates: {reason}").format(
            reason=outcome.complaint))
        return
    day = time.strftime("%F", time.gmtime(end))
    now = time.time()
    if now > end:
        yield Finding("tls.dates", FAULT, _("The certificate expired on {day}.").format(day=day), REPLACE)
    elif now < begin:
        yield Finding("tls.dates", FAULT, _("The certificate is not valid yet: is the clock right?"),
                      "timedatectl")
    elif end - now < SOON_DAYS * DAY_SECONDS:
        yield Finding("tls.dates", WARNING, _("The certificate expires on {day}.").format(day=day), REPLACE)
    else:
        yield Finding("tls.dates", OK, _("The certificate is valid until {day}.").format(day=day))


def check_system(machine, certificate):
    outcome = run("openssl", "verify", "-CApath", machine.path(SYSTEM_STORE), "-untrusted", certificate,
                  certificate)
    if outcome.good:
        yield Finding("tls.system", OK, _("The system's programs trust the certificate."))
    else:
        reason = VERIFY_REASON.search(outcome.errors + outcome.output)
        yield Finding("tls.system", WARNING if outcome.status else UNCHECKED,
                      _("The system's programs do not trust the certificate: {reason}").format(
                          reason=reason.group(1) if reason else outcome.complaint),
                      "sudo quorvel-cert --trust")


def check_browsers(machine, cert, certificate):
    person = machine.person()
    home = machine.path(person.pw_dir)
    cure = _("As that user, run: quorvel-cert --trust, or for all users: sudo quorvel-cert --trust "
             "--all-users; then restart the browser.")
    try:
        root = cert.root_certificate(certificate.resolve())
    except cert.CertError:
        yield Finding("tls.browsers", UNCHECKED, _("Whether browsers trust the certificate: its root is "
                      "not quorvel-cert's, and browsers learn of it by other means."),
                      _("Open https://localhost and the port in the browser."))
        return
    text = base64.b64encode(ssl.PEM_cert_to_DER_cert(root)).decode()
    files = cert.certificates.chromium_files(machine.root)
    if any(path.exists() and text in path.read_text(encoding="utf-8") for path in files):
        yield Finding("tls.browsers", OK, _("Policies have the browsers of all users trust the "
                                            "certificate."))
        return
    stores = cert.browser_stores(home)
    if not stores:
        yield Finding("tls.browsers", WARNING,
                      _("No browser of this user has a certificate store yet, so none trusts the "
                        "certificate."), cure)
    for store in stores:
        outcome = run("certutil", "-L", "-d", f"sql:{store}", "-n", cert.NICKNAME, "-a")
        if outcome.status is None:
            yield Finding("tls.browsers", UNCHECKED, _("The browser store {store}: {reason}.").format(
                store=store, reason=outcome.complaint), "sudo apt-get install libnss3-tools")
        elif not outcome.good:
            yield Finding("tls.browsers", WARNING,
                          _("The browser store {store} does not trust the certificate.").format(
                              store=store), cure)
        elif outcome.output.replace("\r", "").strip() != root.strip():
            yield Finding("tls.browsers", WARNING,
                          _("The browser store {store} trusts an earlier certificate, not this "
                            "one.").format(store=store), cure)
        else:
            yield Finding("tls.browsers", OK, _("The browser store {store} trusts the certificate.").format(
                store=store))


def check_tls(machine, with_tls, home):
    if not with_tls:
        yield Finding("tls.used", OK, _("TLS is not used: pages, those on https too, connect with "
                                        "ws://127.0.0.1."))
        return
    cert = load_command(machine, "quorvel-cert")
    certificate, key = home / cert.CERTIFICATE, home / cert.KEY
    pair = list(check_pair(certificate, key))
    yield from pair
    if any(finding.level == FAULT and finding.cure == REPLACE and str(certificate) in finding.text
           for finding in pair):
        return
    yield from check_names(certificate)
    yield from check_dates(certificate)
    yield from check_system(machine, certificate)
    yield from check_browsers(machine, cert, certificate)
