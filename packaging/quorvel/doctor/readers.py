"""Readers and cards: PC/SC as the service's user meets it, and the devices of USB readers."""

import json
import os
import stat
import sys
from pathlib import Path

from quorvel.doctor.findings import FAULT, OK, UNCHECKED, WARNING, Finding
from quorvel.doctor.installation import can_reach
from quorvel.doctor.machine import SECONDS, SERVICE, run
from quorvel.language import _

LISTING = Path(__file__).with_name("pcsc_listing.py")
SOCKET = "/run/pcscd/pcscd.comm"
SMART_CARD_CLASS = "0b"
SECURITY_VIOLATION = 0x8010006A
NO_READERS = 0x8010002E
POLKIT_RULE = "/usr/share/polkit-1/rules.d/60-quorvelserver.rules"
RESTART = "sudo systemctl restart pcscd.socket pcscd"
PCSC_LIBRARY = "libquorvelpcsc.so"


def list_readers(machine):
    """Returns {"readers": [...]} or {"error": number, "call": name}, or a finding in place of it."""
    outcome = run(sys.executable, "-I", LISTING, **machine.as_service())
    try:
        return json.loads(outcome.output), None
    except ValueError:
        if outcome.hung:
            return None, Finding("readers.pcsc", FAULT, _("PC/SC does not answer within {seconds} "
                                 "seconds.").format(seconds=SECONDS), RESTART)
        return None, Finding("readers.pcsc", UNCHECKED, _("The PC/SC readers: {reason}.").format(
            reason=outcome.complaint))


def refused(machine, error):
    if error["error"] == SECURITY_VIOLATION:
        cure = _("The rule {file} lets the service in; if it is there: sudo systemctl restart "
                 "polkit").format(file=POLKIT_RULE)
        if not machine.path(POLKIT_RULE).exists():
            cure = "sudo apt-get install --reinstall quorvelserver"
        if machine.as_service():
            return Finding("readers.pcsc", FAULT, _("PC/SC does not let the service in."), cure)
        return Finding("readers.pcsc", UNCHECKED, _("PC/SC does not let this user in, which says nothing "
                       "about the service."), "sudo quorvel-doctor")
    if error["error"] == NO_READERS:
        return Finding("readers.pcsc", WARNING, _("PC/SC runs and knows no reader."),
                       _("Plug the reader in, or install its driver; lsusb shows whether the machine "
                         "sees it."))
    return Finding("readers.pcsc", FAULT, _("PC/SC answers {call} with error {number}.").format(
        call=error["call"], number=hex(error["error"])), RESTART)


def check_pcsc(machine, needed):
    if not machine.path(SOCKET).exists():
        level = FAULT if needed else UNCHECKED
        installed = machine.path("/usr/sbin/pcscd").exists()
        yield Finding("readers.pcsc", level, _("PC/SC does not run.") if installed else
                      _("PC/SC is not installed; readers without it are the libraries' own matter."),
                      "sudo systemctl enable --now pcscd.socket" if installed else
                      _("For a PC/SC reader: sudo apt-get install pcscd, and the reader's driver"))
        return
    listing, fault = list_readers(machine)
    if listing is None:
        yield fault
        return
    if "error" in listing:
        yield refused(machine, listing)
        return
    who = SERVICE if machine.as_service() else machine.person().pw_name
    for reader in listing["readers"]:
        state = _("a card is in it") if reader["card"] else _("no card is in it")
        if reader["mute"]:
            yield Finding("readers.card", WARNING, _("The card in {reader} does not answer.").format(
                reader=reader["name"]), _("Turn it round or clean its contacts; try another card."))
        else:
            yield Finding("readers.pcsc", OK, _("Reader {reader}: {state} (asked as {user}).").format(
                reader=reader["name"], state=state, user=who))


def usb_readers(machine):
    """Yields (name, device file) of each USB device with a smart-card interface."""
    devices = set()
    for interface in machine.path("/sys/bus/usb/devices").glob("*:*/bInterfaceClass"):
        try:
            if interface.read_text(encoding="ascii").strip() == SMART_CARD_CLASS:
                devices.add(interface.parent.resolve().parent)
        except OSError:
            continue
    for device in sorted(devices):
        def read(name, folder=device):
            try:
                return (folder / name).read_text(encoding="utf-8", errors="replace").strip()
            except OSError:
                return ""
        if read("busnum").isdigit() and read("devnum").isdigit():
            name = f"{read('idVendor')}:{read('idProduct')} {read('product')}".strip()
            yield name, machine.path(f"/dev/bus/usb/{int(read('busnum')):03}/{int(read('devnum')):03}")


def check_usb(machine):
    service = machine.service_user
    for name, device in usb_readers(machine):
        if service is None or not device.exists():
            yield Finding("readers.usb", UNCHECKED, _("USB reader {name}: there is no user {user} to "
                          "open it.").format(name=name, user=SERVICE))
        elif can_reach(device, service.pw_uid, os.getgrouplist(SERVICE, service.pw_gid),
                       stat.S_IROTH | stat.S_IWOTH):
            yield Finding("readers.usb", OK, _("USB reader {name}: the service may open it.").format(
                name=name))
        else:
            yield Finding("readers.usb", WARNING,
                          _("USB reader {name}: the service may not open {device}; a library without "
                            "PC/SC does not find it.").format(name=name, device=device),
                          "sudo udevadm control --reload && sudo udevadm trigger --action=change "
                          "--subsystem-match=usb")


def check_readers(machine, settings):
    listed = settings["serviceIni"]["libraries"] if settings else []
    yield from check_pcsc(machine, any(library["path"].endswith(PCSC_LIBRARY) for library in listed))
    yield from check_usb(machine)
