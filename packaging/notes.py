"""What stands beside the files of a package: licences, changes and a bill of materials.

usage: notes.py debian|archive NAME VERSION ARCHITECTURE ROOT

ROOT holds the package's files as they are installed. Debian's notes lie in usr/share/doc/NAME; an
archive has them at its top, with MANIFEST, the SHA-256 sums of its files. Fails where something is
linked that licences.json does not know. The time in the bill is SOURCE_DATE_EPOCH.
"""
import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import uuid

HERE = pathlib.Path(__file__).resolve().parent
CHANGES = HERE.parent / "CHANGELOG.md"
NO_LICENCE = ("The owner of mqttadapter has not chosen a licence for it yet: nothing in this package "
              "grants\nany right to its own files. What it is linked with and what is compiled into it "
              "has these\nlicences; the texts follow.")


def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


class Libraries:
    """What the programs and libraries of a package are made of, as Debian's packages of it."""

    def __init__(self, files, name, architecture):
        self.architecture = architecture
        known = json.loads((HERE / "licences.json").read_text())
        self.licences = known["linked"] | known["compiled in"]
        needed = set()
        for file in files:
            if file.read_bytes()[:4] == b"\x7fELF":
                needed |= set(re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-d", file)))
        linked = {self.package_of(library) for library in needed - {file.name for file in files}}
        compiled_in = known["compiled into"].get(name, [])
        self.parts = [self.part(package, "linked") for package in sorted(linked)]
        self.parts += [self.part(package, "compiled in") for package in sorted(compiled_in)]

    def package_of(self, library):
        for line in output("dpkg-query", "-S", f"*/{library}").splitlines():
            package, _, path = line.partition(": ")
            if package.endswith(":" + self.architecture) and pathlib.Path(path).name == library:
                return package.split(":")[0]
        raise SystemExit(f"no package of {self.architecture} has {library}")

    def part(self, package, how):
        if package not in self.licences:
            raise SystemExit(f"packaging/licences.json has no licence of {package}")
        full = package if how == "compiled in" else f"{package}:{self.architecture}"
        version = output("dpkg-query", "-W", "-f=${Version}\n", full).split()[0]
        return {"name": package, "version": version, "how": how, "licence": self.licences[package]}


def licence_text(part):
    """What Debian says of a package; of Boost, which has it file by file, the licence alone."""
    text = pathlib.Path("/usr/share/doc", part["name"], "copyright").read_text(errors="replace")
    if part["name"].startswith("libboost"):
        text = re.search(rf"^License: {part['licence']}\n(?: .*\n?)+", text, re.MULTILINE).group()
    return text.rstrip()


def copyright_text(name, version, parts):
    lines = [f"{name} {version}", "", NO_LICENCE, ""]
    lines += [f"  {part['name']} {part['version']} ({part['how']}): {part['licence']}" for part in parts]
    texts = {}
    for part in parts:
        texts.setdefault(licence_text(part), []).append(part["name"])
    for text, names in texts.items():
        lines += ["", f"{' ' + ', '.join(names) + ' ':=^100}", "", text]
    return "\n".join(lines) + "\n"


def bill(name, version, architecture, parts, epoch):
    """A CycloneDX bill of materials."""
    def reference(part):
        at = f"pkg:deb/debian/{part['name']}@{part['version'].replace('+', '%2B')}"
        return at if part["how"] == "compiled in" else f"{at}?arch={architecture}"
    own = f"{name}@{version}?arch={architecture}"
    components = [{
        "type": "library", "bom-ref": reference(part), "name": part["name"],
        "version": part["version"], "purl": reference(part),
        "licenses": [{"expression": part["licence"]}],
        "properties": [{"name": "mqttadapter:use", "value": part["how"]}]} for part in parts]
    made = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc)
    return {
        "bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
        "serialNumber": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_URL, own + str(epoch))}",
        "metadata": {"timestamp": made.strftime("%Y-%m-%dT%H:%M:%SZ"),
                     "component": {"type": "library" if "rig" not in name else "application",
                                   "bom-ref": own, "name": name, "version": version}},
        "components": components,
        "dependencies": [{"ref": own, "dependsOn": [part["bom-ref"] for part in components]}]}


def main():
    kind, name, version, architecture, root = sys.argv[1:]
    root, epoch = pathlib.Path(root), int(os.environ["SOURCE_DATE_EPOCH"])
    newest = re.search(r"^## (\S+)", CHANGES.read_text(), re.MULTILINE)
    if newest is None or newest.group(1) != version:
        raise SystemExit(f"CHANGELOG.md does not begin with {version}")
    files = sorted(file for file in root.rglob("*") if file.is_file() and not file.is_symlink())
    parts = Libraries(files, name, architecture).parts
    notes = {"copyright": copyright_text(name, version, parts), "CHANGELOG.md": CHANGES.read_text(),
             "sbom.cdx.json": json.dumps(bill(name, version, architecture, parts, epoch), indent=1) + "\n"}
    if kind == "archive":
        notes["MANIFEST"] = "".join(
            f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {file.relative_to(root)}\n" for file in files)
    folder = root if kind == "archive" else root / "usr/share/doc" / name
    folder.mkdir(parents=True, exist_ok=True)
    for note, text in notes.items():
        (folder / note).write_text(text)


main()
