"""The contract between a camera and its clients, contract/asyncapi.json: reading and writing it."""

import copy
import json
import pathlib

import jsonschema

HERE = pathlib.Path(__file__).resolve().parent
PATH = HERE / "asyncapi.json"
WIDTH = 100


def load(path=PATH):
    return json.loads(pathlib.Path(path).read_text(encoding="utf-8"))


def text_of(value, indent=""):
    """JSON with what fits on a line on one line: the one layout of the contract."""
    line = json.dumps(value, ensure_ascii=False)
    if not isinstance(value, (dict, list)) or not value or len(indent) + len(line) <= WIDTH:
        return line
    inner = indent + "  "
    if isinstance(value, list):
        parts = [text_of(element, inner) for element in value]
    else:
        parts = [f"{json.dumps(key)}: {text_of(member, inner)}" for key, member in value.items()]
    opening, closing = "[]" if isinstance(value, list) else "{}"
    return opening + "\n" + ",\n".join(inner + part for part in parts) + "\n" + indent + closing


def resolve(document, value):
    """The value that a {"$ref"} leads to, or the value itself."""
    while isinstance(value, dict) and "$ref" in value:
        target = document
        for key in value["$ref"].removeprefix("#/").split("/"):
            target = target[key]
        value = target
    return value


def requests(document):
    """The operations that are requests, by the request's name."""
    return {key.removeprefix("request_"): operation
            for key, operation in document["operations"].items()
            if operation["action"] == "receive"}


def schemas(document):
    return document["components"]["schemas"]


def strict(schema):
    """The schema as the project's own tests use it: nothing beyond what it names.

    Receivers let unknown members pass. A camera that sends one, however, says what the
    contract does not.
    """
    schema = copy.deepcopy(schema)
    stack = [schema]
    while stack:
        value = stack.pop()
        if isinstance(value, dict):
            types = value.get("type")
            if isinstance(value.get("properties"), dict) and (
                    types == "object" or isinstance(types, list) and "object" in types):
                value.setdefault("additionalProperties", False)
            stack.extend(value.values())
        elif isinstance(value, list):
            stack.extend(value)
    return schema


def validator(document, name):
    """Checks documents against one schema, strictly."""
    root = {"$ref": f"#/components/schemas/{name}",
            "components": {"schemas": strict(schemas(document))}}
    return jsonschema.Draft7Validator(root)
