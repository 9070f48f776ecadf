#!/usr/bin/python3 -I
"""Writes the list of what the package is made of, in SPDX 2.3 as JSON.

Usage: parts_list.py ROOT PROGRAM NAME VERSION ARCHITECTURE

ROOT is the staged package, PROGRAM the program's folder in it, ARCHITECTURE Debian's name of the
machine it is for. What the programs are linked with is looked up in dpkg's data, so it must be
installed from packages. The same input gives the same bytes; the date is SOURCE_DATE_EPOCH's.
"""

import hashlib
import json
import os
import re
import subprocess
import sys
import uuid
from datetime import datetime, timezone
from pathlib import Path

ELF_MAGIC = b"\x7fELF"
OWN_LICENSE = "MIT"
SUPPLIER = "Organization: the Quorvel Server authors"


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True,
                          env={**os.environ, "LC_ALL": "C"}).stdout


def identifier(*words):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", "-".join(words))


def package(kind, name, version, license_name, supplier, **more):
    return {"SPDXID": identifier(kind, name), "name": name, "versionInfo": version,
            "supplier": supplier, "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
            "licenseConcluded": license_name, "licenseDeclared": license_name,
            "copyrightText": "NOASSERTION", **more}


def program_file(root, path):
    content = path.read_bytes()
    name = path.relative_to(root)
    return {"SPDXID": identifier("File", str(name)), "fileName": f"./{name}",
            "fileTypes": ["BINARY"], "licenseConcluded": OWN_LICENSE,
            "copyrightText": "NOASSERTION",
            "checksums": [{"algorithm": kind.upper(), "checksumValue":
                           hashlib.new(kind, content).hexdigest()} for kind in ("sha1", "sha256")]}


def debian_package(library, architecture):
    """Describes the installed package that brings the shared library of this file name."""
    triplet = output_of("dpkg-architecture", "-a", architecture, "-q", "DEB_HOST_MULTIARCH").strip()
    owner, _, _ = output_of("dpkg-query", "-S", f"*/lib/{triplet}/{library}").partition(": ")
    name, version, source, source_version, maintainer = output_of(
        "dpkg-query", "-W", "-f", "${Package}\n${Version}\n${source:Package}\n${source:Version}\n"
        "${Maintainer}", owner).split("\n")
    locator = f"pkg:deb/debian/{name}@{version}?arch={architecture}".replace("+", "%2B")
    return package("Package", name, version, "NOASSERTION",
                   "Organization: " + re.sub(r" <(.*)>", r" (\1)", maintainer),
                   sourceInfo=f"built from {source} {source_version}",
                   externalRefs=[{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                  "referenceLocator": locator}])


def main():
    root, program, name, version, architecture = sys.argv[1:]
    root = Path(root)
    program = root / program.lstrip("/")
    paths = sorted(path for path in program.rglob("*") if path.is_file()
                   and not path.is_symlink() and path.open("rb").read(4) == ELF_MAGIC)
    files = {path.name: program_file(root, path) for path in paths}
    client = json.loads((program / "client/package.json").read_text(encoding="utf-8"))
    own = package("Package", name, version, OWN_LICENSE, SUPPLIER)
    parts = [own, package("Client", client["name"], client["version"], OWN_LICENSE, SUPPLIER)]
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", own), (own["SPDXID"], "CONTAINS", parts[1])]
    packages = {}
    for path in paths:
        file = files[path.name]
        relations.append((own["SPDXID"], "CONTAINS", file))
        for library in re.findall(r"\(NEEDED\).*\[(.+)\]", output_of("readelf", "-dW", path)):
            if library not in files and library not in packages:
                packages[library] = debian_package(library, architecture)
            linked = files.get(library) or packages[library]
            relations.append((file["SPDXID"], "DYNAMIC_LINK", linked))
    parts += sorted({part["name"]: part for part in packages.values()}.values(),
                    key=lambda part: part["name"])
    date = datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), timezone.utc)
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{name}_{version}_{architecture}",
        "creationInfo": {"created": date.strftime("%Y-%m-%dT%H:%M:%SZ"),
                         "creators": [SUPPLIER, "Tool: parts_list.py"]},
        "packages": parts, "files": list(files.values()),
        "relationships": [{"spdxElementId": one, "relationshipType": kind,
                           "relatedSpdxElement": other["SPDXID"]}
                          # Two libraries may come from one package.
                          for one, kind, other in relations]}
    document["relationships"] = list({tuple(relation.values()): relation
                                      for relation in document["relationships"]}.values())
    # Another list is another document, and the same list the same.
    content = json.dumps(document, sort_keys=True)
    document["documentNamespace"] = uuid.uuid5(uuid.NAMESPACE_OID, content).urn
    print(json.dumps(document, indent=2))


if __name__ == "__main__":
    main()
