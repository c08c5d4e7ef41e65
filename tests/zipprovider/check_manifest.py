"""Reads the manifest out of a built bundle and compares it with what hosts rely on, key by key.

usage: check_manifest.py LIBRARY
"""

import json
import sys
import zipfile

EXPECTED = {
    "bundle.activator": False,
    "bundle.symbolic_name": "com_orbelkast_zipprovider",
    "identifier": "vornak.container.zip",
    "kx": {
        "clientdir": "src/storage/zipprovider",
        "component": {
            "attributes": "released",
            "name": "storage/zipprovider",
            "type": "software",
        },
        "installpath": "bin/win64/vfs/provider/storage/zipprovider/libkxzipprovider.dll",
        "module": {"name": "zipprovider"},
    },
    "scheme": "zip",
    "scr": {
        "version": 1,
        "components": [
            {
                "implementation-class": "storage::zipprovider::ZipProviderFactory",
                "properties": {"scheme": "zip"},
                "service": {"interfaces": ["foundation::storage::provider::ContainerProviderFactory"]},
            }
        ],
    },
}


def object_without_repeated_keys(pairs):
    keys = [key for key, _ in pairs]
    repeated = {key for key in keys if keys.count(key) > 1}
    if repeated:
        raise ValueError(f"keys that stand there twice: {sorted(repeated)}")
    return dict(pairs)


def differences(expected, found, place="manifest"):
    """Yields one line for each key or value that is not as expected. True and 1 are different values."""
    if type(expected) is not type(found):
        yield f"{place}: expected {expected!r}, found {found!r}"
    elif isinstance(expected, dict):
        for key in sorted(expected.keys() | found.keys()):
            if key not in found:
                yield f"{place}: {key!r} is missing"
            elif key not in expected:
                yield f"{place}: {key!r} should not be there"
            else:
                yield from differences(expected[key], found[key], f"{place} / {key!r}")
    elif isinstance(expected, list):
        if len(expected) != len(found):
            yield f"{place}: expected {len(expected)} elements, found {len(found)}"
        for index, (left, right) in enumerate(zip(expected, found)):
            yield from differences(left, right, f"{place} [{index}]")
    elif expected != found:
        yield f"{place}: expected {expected!r}, found {found!r}"


def main():
    library = sys.argv[1]
    with zipfile.ZipFile(library) as archive:
        damaged = archive.testzip()
        names = archive.namelist()
        text = archive.read("com_orbelkast_zipprovider/manifest.json").decode("utf-8")
    problems = []
    if damaged is not None:
        problems.append(f"{damaged}: damaged")
    if names != ["com_orbelkast_zipprovider/manifest.json"]:
        problems.append(f"resources: expected the manifest alone, found {names}")
    manifest = json.loads(text, object_pairs_hook=object_without_repeated_keys)
    vendor = manifest.pop("bundle.vendor", None)
    if not isinstance(vendor, str) or not vendor:
        problems.append(f"manifest: 'bundle.vendor' should be the maker's name, found {vendor!r}")
    problems += differences(EXPECTED, manifest)
    for problem in problems:
        print(f"{library}: {problem}", file=sys.stderr)
    sys.exit(1 if problems else 0)


main()
