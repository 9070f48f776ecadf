"""The port: who has it, who can reach it, and whether the service answers there, and how fast."""

import http.client
import ipaddress
import json
import os
import ssl
import time

from quorvel.commands import load_command
from quorvel.doctor.findings import FAULT, OK, WARNING, Finding
from quorvel.doctor.machine import SERVICE, run
from quorvel.doctor.process import described
from quorvel.language import _

SECONDS = 5
# Beyond this a user waits.
SLOW_MILLISECONDS = 1000
STATUS_REQUEST = '{"fid":"quorvel.status"}'


def check_port(port, process, found):
    if not port:
        yield Finding("port.owner", FAULT, _("The settings name no port, so the service does not start."),
                      _("See the settings, above."))
    elif not found:
        level = FAULT if process is None else WARNING
        yield Finding("port.owner", level, _("Nobody listens on port {port}.").format(port=port),
                      _("Start the service; while it starts, its libraries look for their devices first.")
                      if process is None else f"sudo systemctl restart {SERVICE}")
    elif process is None or not is_service(found[0], process):
        yield Finding("port.owner", FAULT,
                      _("Port {port} is taken by another program ({program}).").format(
                          port=port, program=described(found[0])),
                      _("End that program, or set localport= in quorvel_service.ini, and the pages' "
                        "address, to a free port."))
    else:
        yield Finding("port.owner", OK, _("The service has port {port} ({program}).").format(
            port=port, program=described(found[0])))


def is_service(listener, process):
    if listener.process is not None:
        return listener.process == process.number
    return listener.user == process.user


def fetch_page(port, with_tls):
    """Returns the milliseconds that the page took, or None and the reason."""
    began = time.monotonic()
    try:
        if with_tls:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
            context.check_hostname = False
            # Judged elsewhere.
            context.verify_mode = ssl.CERT_NONE
            connection = http.client.HTTPSConnection("127.0.0.1", port, timeout=SECONDS, context=context)
        else:
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
        connection.request("GET", "/")
        status = connection.getresponse().status
        connection.close()
    except (OSError, http.client.HTTPException) as error:
        return None, str(error) or type(error).__name__
    if status != http.client.OK:
        return None, f"HTTP {status}"
    return (time.monotonic() - began) * 1000, ""


def ask(machine, port, process, request, *options):
    """Sends the request over the WebSocket, as a native program of this machine."""
    cert = load_command(machine, "quorvel-cert")
    address = f"ws://127.0.0.1:{port}"
    if process.with_tls:
        address = f"wss://localhost:{port}"
        # The one that it shows; whether others trust it is judged elsewhere.
        certificate = machine.path(cert.TLS_FOLDER / cert.CERTIFICATE)
        if process.folder is not None:
            certificate = process.folder / cert.CERTIFICATE
        if os.access(certificate, os.R_OK):
            options = ("--ca", certificate, *options)
    return run(machine.command("quorvel-call"), "--url", address, "--timeout", SECONDS, *options, request,
               seconds=SECONDS + 2, in_own_language=True)


def read_status(machine, port, process):
    """What the service tells of itself, or None and the reason."""
    outcome = ask(machine, port, process, STATUS_REQUEST)
    try:
        reply = json.loads(outcome.output)
    except ValueError:
        return None, outcome.complaint
    if "libraries" not in reply:
        return None, reply.get("errmsg", "")
    return reply, ""


def check_answer(port, process):
    milliseconds, reason = fetch_page(port, process.with_tls)
    if milliseconds is None:
        yield Finding("port.answer", FAULT, _("The service does not answer: {reason}.").format(
            reason=reason), _("A reader library inside it may hold it; isolate the library, and "
                              "restart: sudo systemctl restart quorvelserver"))
    elif milliseconds > SLOW_MILLISECONDS:
        yield Finding("port.answer", WARNING, _("The service answers slowly, after {time} ms.").format(
            time=round(milliseconds)), _("A reader library inside it holds it; isolate the library."))
    else:
        yield Finding("port.answer", OK, _("The service answers after {time} ms.").format(
            time=round(milliseconds, 1)))


def is_reached_from_outside(found):
    return any(not ipaddress.ip_address(listener.address).is_loopback for listener in found)


def reach(found):
    if is_reached_from_outside(found):
        return _("Every machine that reaches this one can connect.")
    return _("Only this machine can connect.")


def check_access(found, settings):
    """Who may use the service: the machines by where it listens, the pages by its settings."""
    access = settings["serviceIni"]["access"]
    if access["sitesLimited"]:
        pages = _("Of web pages, the service's own and these may use it: {sites}.").format(
            sites=", ".join(access["sites"]) or _("none"))
    else:
        pages = _("Every web page may use it.")
    is_open = not access["sitesLimited"] and is_reached_from_outside(found)
    yield Finding("port.access", WARNING if is_open else OK, _("{machines} {pages}").format(
        machines=reach(found), pages=pages),
                  _("Enter the site that reads cards, and listen=loopback under [ACCESS] in "
                    "quorvel_service.ini: sudo quorvel-policy https://SITE") if is_open else "")
