#!/usr/bin/python3
"""A card by Debian's vsmartcard-vpicc in the virtual reader: files and records of ours.

The package's module lies in an odd path, and its cryptography goes by an older name. A SELECT that
asks for the file's control information ends it, so the card is known by its ATR.
"""

import sys

import Cryptodome

sys.path.insert(0, "/usr/lib/python3/site-packages/virtualsmartcard")
sys.modules["Crypto"] = Cryptodome

from virtualsmartcard import SmartcardFilesystem as fs  # noqa: E402
from virtualsmartcard.ConstantDefinitions import FDB  # noqa: E402
from virtualsmartcard.SmartcardSAM import SAM  # noqa: E402
from virtualsmartcard.VirtualSmartcard import Iso7816OS, VirtualICC  # noqa: E402

master = fs.MF()
directory = fs.DF(master, 0x5000)
master.append(directory)
directory.append(fs.TransparentStructureEF(
    directory, 0x5001, data=b"".join(b"%04d" % n for n in range(150))))
directory.append(fs.RecordStructureEF(
    directory, 0x5002, FDB["EFSTRUCTURE_LINEAR_VARIABLE_NOFURTHERINFO"],
    records=[fs.Record(1, b"first"), fs.Record(2, b"second")]))

card = VirtualICC(None, "iso7816", "localhost", 35963)
card.os = Iso7816OS(master, SAM("1234", "1234567890", master))
card.run()
