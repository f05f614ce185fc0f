"""Keeps docs/messages.md and the contract the same.

Tables and texts go from the contract into the document, between
`<!-- contract: ... -->` and `<!-- /contract -->`. Examples go the other way: those of the
document come from a run of the desk (`./dev examples`). A request that is marked
`(refused)` is no example of the contract.

usage: docs.py [--check]
"""

import difflib
import json
import re
import sys

import contract

DOCUMENT = contract.HERE.parent / "docs/messages.md"
BLOCK = re.compile(r"(<!-- contract: (.+?) -->\n).*?(<!-- /contract -->\n)", re.S)
EXAMPLE = re.compile(r"<!-- example: (\S+) (\S+) -->\n```json\n(.*?)```\n", re.S)

INTEGERS = {(-2**31, 2**31 - 1): "int32", (0, 2**32 - 1): "uint32", (0, 2**16 - 1): "uint16",
            (0, 2**8 - 1): "uint8", (0, 2**31 - 1): "integer from 0", (0, None): "integer from 0"}
TYPES = {"object": "object", "array": "array", "boolean": "true or false", "null": "null",
         "number": "number", "string": "text", "integer": "integer"}
# An object with more members than this gets a table of its own.
MANY = 10


def table(*rows):
    """A Markdown table; the first row is its head."""
    lines = ["| " + " | ".join(str(cell).replace("|", "\\|") for cell in row) + " |"
             for row in rows]
    lines.insert(1, "|" + "---|" * len(rows[0]))
    return "\n".join(lines) + "\n"


def code(value):
    return f"`{value}`"


def integer_text(schema):
    low, high = schema.get("minimum"), schema.get("maximum")
    if low is None:
        return "integer"
    return INTEGERS.get((low, high)) or f"integer, {low} to {high}"


def type_text(document, schema):
    """The type of a member in a few words."""
    schema = contract.resolve(document, schema)
    if "const" in schema:
        return "always " + code(json.dumps(schema["const"]))
    if "x-meanings" in schema:
        return "one of those below"
    if "enum" in schema:
        return ", ".join(code(value) for value in schema["enum"])
    if "oneOf" in schema:
        return " or ".join(type_text(document, one) for one in schema["oneOf"])
    kinds = schema.get("type")
    if kinds is None:
        desk = schema.get("x-desk-type")
        return f"on the desk {desk}" if desk else "anything"
    if kinds == ["integer", "string"]:
        return integer_text(schema) + ", or the same as text"
    if isinstance(kinds, list):
        return " or ".join(TYPES[kind] for kind in kinds)
    if kinds == "integer":
        return integer_text(schema)
    if kinds == "array" and "items" in schema:
        items = contract.resolve(document, schema["items"])
        of = {"object": "objects", "string": "texts"}.get(items.get("type"), "values")
        return f"array of {of}"
    return "Base64" if "contentEncoding" in schema else TYPES[kinds]


class Members:
    """The members of a schema as tables."""

    def __init__(self, document, absent):
        self.document = document
        self.absent = absent  # what is said of a member that is not required
        self.tables = []      # [title, rows]
        self.meanings = {}
        self.desk_codes = []

    def add_table(self, schema, path, title):
        rows = []
        self.tables.append([title, rows])
        self.add_members(schema, path, rows)

    def add_members(self, schema, path, rows):
        """Rows of an object's members, or of an array's elements."""
        schema = contract.resolve(self.document, schema)
        for alternative in schema.get("oneOf", []):
            if contract.resolve(self.document, alternative).get("type") == "object":
                self.add_members(alternative, path, rows)
        if isinstance(schema.get("items"), dict):
            self.add_members(schema["items"], path + "[]", rows)
        # What the device makes of a value nobody checks is not said to be there or not.
        is_checked = "type" in schema
        for name, member in schema.get("properties", {}).items():
            if member is not False:
                is_sure = name in schema.get("required", []) or not is_checked
                self.add_member(member, f"{path}.{name}" if path else name, is_sure, rows)

    def add_member(self, member, path, is_sure, rows):
        schema = contract.resolve(self.document, member)
        has_parts = any(key in schema for key in ("properties", "items"))
        if "description" in schema or not has_parts:
            kind = type_text(self.document, schema) + ("" if is_sure else ", " + self.absent)
            rows.append([path, kind, schema.get("description", "")])
        if "x-meanings" in schema:
            self.meanings[path] = [[code(value), meaning]
                                   for value, meaning in schema["x-meanings"].items()]
        if "x-desk-codes" in schema:
            codes = [f"{value} {meaning}" for value, meaning in schema["x-desk-codes"].items()]
            self.desk_codes.append([path, ", ".join(codes)])
        if len(schema.get("properties", {})) > MANY:
            self.add_table(schema, "", f"Members of {code(path)}:")
        else:
            self.add_members(schema, path, rows)

    def text(self):
        parts = []
        for title, rows in self.tables:
            if rows:
                parts.append((title + "\n\n" if title else "") +
                             table(["Member", "Type", "Meaning"], *merged(rows)))
        parts += [table([code(path), "Meaning"], *rows) for path, rows in self.meanings.items()]
        if self.desk_codes:
            parts.append("The device's own codes, as the desk has them:\n\n" +
                         table(["Member", "Codes"],
                               *([code(path), text] for path, text in self.desk_codes)))
        return "\n".join(parts)


def merged(rows):
    """Neighbours that differ in their last name only share a row."""
    result = []
    for path, kind, meaning in rows:
        parent, _, name = path.rpartition(".")
        if result and result[-1][1:] == [parent, kind, meaning]:
            result[-1][0] += ", " + code(name)
        else:
            result.append([code(path), parent, kind, meaning])
    return [[paths, kind, meaning] for paths, _, kind, meaning in result]


def members(document, schema, absent="may be absent"):
    result = Members(document, absent)
    result.add_table(schema, "", "")
    return result.text()


def tags(document, name):
    tag = contract.schemas(document)["message_" + name]["properties"]["tag"]
    return tag.get("enum") or [tag["const"]]


def topics(document):
    rows = [["Topic", "Body"]]
    for channel in document["channels"].values():
        address = channel["address"].replace("{", "<").replace("}", ">")
        rows.append([code(address), channel["description"].replace("{name}", "<name>")])
    return table(*rows)


def events(document):
    rows = [["Message", "Tag", "When"]]
    for name in document["channels"]["message"]["messages"]:
        tag = contract.schemas(document)["message_" + name]["properties"]["tag"]
        for value, when in tag.get("x-meanings", {}).items():
            rows.append([code(name), value, when])
    return table(*rows)


def answer(document, name):
    """Where the outcome of a request is told besides `result`."""
    response = contract.schemas(document)["response_" + name]["properties"]
    told = []
    if response["response"] != {"type": "null"}:
        told.append("response")
    if response["answer"] is not False:
        told.append(f"message ({tags(document, name)[0]})")
    return " and ".join(told) or "—"


def request_table(document):
    rows = [["Request", "Version", "Service queue", "Timeout, ms", "Answer (tag)"]]
    for name, operation in contract.requests(document).items():
        about = operation["x-request"]
        service = code(about["service"]) if "service" in about else "—"
        rows.append([f"[{code(name)}](#{'serial_data-1' if name == 'serial_data' else name})",
                     about["versions"], service, about.get("timeout_ms", "—"),
                     about.get("answer") or answer(document, name)])
    return table(*rows)


def request(document, name):
    operation = contract.requests(document)[name]
    about = operation["x-request"]
    parts = [operation["summary"] + "\n",
             "- `result` is true: " + about["success"] + "\n" +
             "- `result` is false when " + about["failure"] + ".\n" +
             (f"- Also taken, and not promised: {about['tolerated']}\n"
              if "tolerated" in about else "")]
    schema = contract.schemas(document)["request_" + name]["properties"]["payload"]
    if "body" in schema["properties"]:
        body = {"properties": {"body": schema["properties"]["body"]}}
        parts.append(members(document, body, "optional"))
    response = contract.schemas(document)["response_" + name]["properties"]
    if response["answer"] is not False:
        payload = contract.schemas(document)["payload_" + name]
        # One that looks like another message has its table there.
        if "$ref" not in payload:
            parts.append("The answer:\n\n" + members(document, payload))
    elif response["response"] != {"type": "null"}:
        parts.append("The response:\n\n" + members(document, response["response"]))
    return "\n".join(parts)


def message(document, name):
    schema = contract.resolve(document, contract.schemas(document)["payload_" + name])
    return schema["description"] + "\n\n" + members(document, schema)


def version(document):
    return (f"This is version {document['info']['version']} of the contract, "
            "[`contract/asyncapi.json`](../contract/asyncapi.json),\n"
            "in AsyncAPI 3, which says all of this to programs. The tables here are made of it\n"
            "(`./dev docs`). A change that breaks clients is a new major version\n"
            "(`./dev contract-diff`). New members and new codes come without one: clients let\n"
            "pass what they do not know.\n")


def schema_members(document, name):
    schema = dict(contract.schemas(document)[name])
    schema["properties"] = {key: value for key, value in schema["properties"].items()
                            if key != "counters"}
    return members(document, schema, "optional" if name == "request" else "may be absent")


def counters(document, _=None):
    rows = [[code(name), counter["description"]] for name, counter in
            contract.schemas(document)["status"]["properties"]["counters"]["properties"].items()]
    return table(["Counter", "Meaning"], *rows)


BLOCKS = {"version": version, "topics": topics, "events": events, "requests": request_table,
          "request": request, "message": message,
          "members": schema_members, "counters": counters}


def written(document, text):
    """The document's text with its blocks as the contract has them."""
    def block(match):
        kind, *arguments = match.group(2).split()
        return match.group(1) + "\n" + BLOCKS[kind](document, *arguments) + "\n" + match.group(3)
    return BLOCK.sub(block, text)


def take_examples(document, text):
    """Gives the contract the examples of the document's text."""
    examples = {}
    for kind, name, block in EXAMPLE.findall(text):
        examples.setdefault(f"{kind}_{name}", []).append({"payload": json.loads(block)})
    for name, found in examples.items():
        document["components"]["messages"][name]["examples"] = found


def main(arguments):
    document = contract.load()
    text = DOCUMENT.read_text(encoding="utf-8")
    take_examples(document, text)
    wanted = {contract.PATH: contract.text_of(document) + "\n", DOCUMENT: written(document, text)}
    status = 0
    for path, new in wanted.items():
        old = path.read_text(encoding="utf-8")
        if "--check" not in arguments:
            path.write_text(new, encoding="utf-8")
        elif old != new:
            status = 1
            difference = difflib.unified_diff(old.splitlines(True), new.splitlines(True),
                                              path.name, "as it should be")
            sys.stderr.writelines(list(difference)[:40])
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
