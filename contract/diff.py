"""Says which changes of the contract break a client, and which do not.

What the camera sends must stay within what was promised; what it accepts must stay at least
as wide. A member or a code may come on top of what it sends: clients ignore members, and
expect codes, that they do not know.

usage: ./dev contract-diff REVISION
Exit code 1: something breaks a client, and the contract has no new major version. 2: wrong
usage.
"""

import json
import re
import subprocess
import sys

import contract

SENDS, ACCEPTS = "sends", "accepts"
LOWER_LIMITS = ("minimum", "minLength", "minItems")
UPPER_LIMITS = ("maximum", "maxLength", "maxItems", "maxProperties")
ALL_TYPES = {"null", "boolean", "integer", "number", "string", "object", "array"}
TEXTS = ("description", "x-meanings", "x-desk-codes", "x-desk-type")


class Changes:
    def __init__(self, old, new):
        self.old, self.new = old, new
        self.breaking, self.other = [], []

    def add(self, breaks, where, what):
        found = self.breaking if breaks else self.other
        line = f"{where}: {what}"
        if line not in found:
            found.append(line)

    # -- schemas -------------------------------------------------------------------

    def whole(self, document, schema):
        """A schema without references and with the parts of its allOf put into it."""
        schema = contract.resolve(document, schema)
        if isinstance(schema, bool):
            return schema
        result = {"properties": {}, "required": set()}
        for part in [self.whole(document, one) for one in schema.get("allOf", [])] + [schema]:
            for key, value in part.items():
                if key == "properties":
                    for name, member in value.items():
                        base = result["properties"].get(name)
                        result["properties"][name] = (
                            {"allOf": [base, member]} if base and member else member)
                elif key == "required":
                    result["required"] |= set(value)
                elif key in ("if", "then", "else"):
                    if "if" in part:  # Conditions of several parts stand beside each other.
                        result.setdefault("conditions", {}).setdefault(id(part), {})[key] = value
                elif key == "conditions":
                    result.setdefault("conditions", {}).update(value)
                elif key != "allOf":
                    result[key] = value
        return result

    def compare(self, old, new, direction, where):
        old, new = self.whole(self.old, old), self.whole(self.new, new)
        if isinstance(old, bool) or isinstance(new, bool):
            self.compare_presence(old is not False, new is not False, direction, where)
            return
        self.compare_types(old, new, direction, where)
        self.compare_values(old, new, direction, where)
        self.compare_limits(old, new, direction, where)
        self.compare_members(old, new, direction, where)
        self.compare_alternatives(old, new, direction, where)
        self.compare_conditions(old, new, direction, where)
        for part, name in (("items", "[]"), ("additionalProperties", ".*")):
            if isinstance(old.get(part), dict) or isinstance(new.get(part), dict):
                self.compare(old.get(part, {}), new.get(part, {}), direction, where + name)
        if any(old.get(key) != new.get(key) for key in TEXTS):
            self.add(False, where, "its description changed")

    def compare_presence(self, was, is_there, direction, where):
        if was and not is_there:
            self.add(True, where, f"the camera no longer {direction} it")
        elif is_there and not was:
            self.add(False, where, f"the camera now {direction} it")

    def compare_types(self, old, new, direction, where):
        if old.get("contentEncoding") != new.get("contentEncoding"):
            self.add(True, where, f"encoding {old.get('contentEncoding')} became "
                                  f"{new.get('contentEncoding')}")
        was, now = types(old), types(new)
        if was != now:
            is_wider = not now <= was
            is_narrower = not was <= now
            breaks = is_wider if direction == SENDS else is_narrower
            self.add(breaks, where, f"type {shown(was)} became {shown(now)}")

    def compare_values(self, old, new, direction, where):
        was, now = values(old), values(new)
        if was is None and now is None:
            return
        if was is None or now is None:
            is_wider = now is None
            self.add(is_wider == (direction == SENDS), where,
                     "its values are no longer enumerated" if is_wider else
                     f"its values are now {', '.join(now)}")
            return
        for value in was:
            if value not in now:
                self.add(True, where, f"value {value} is gone")
        for value in now:
            if value not in was:
                self.add(False, where, f"value {value} is new")

    def compare_limits(self, old, new, direction, where):
        for key in LOWER_LIMITS + UPPER_LIMITS:
            was, now = old.get(key), new.get(key)
            if was == now:
                continue
            is_wider = now is None or was is not None and (
                now < was if key in LOWER_LIMITS else now > was)
            self.add(is_wider == (direction == SENDS), where, f"{key} {was} became {now}")
        if old.get("pattern") != new.get("pattern"):
            is_safe = ("pattern" not in old) if direction == SENDS else ("pattern" not in new)
            self.add(not is_safe, where,
                     f"pattern {old.get('pattern')} became {new.get('pattern')}")

    def compare_members(self, old, new, direction, where):
        was, now = old["properties"], new["properties"]
        for name in [*was, *(name for name in now if name not in was)]:
            inner = f"{where}.{name}"
            if name not in now:
                self.compare_presence(was[name] is not False, False, direction, inner)
            elif name not in was:
                self.compare_presence(False, now[name] is not False, direction, inner)
            else:
                self.compare(was[name], now[name], direction, inner)
        for name in sorted(old["required"] - new["required"]):
            # One that is gone was told above.
            if name in now or name not in was:
                self.add(direction == SENDS, f"{where}.{name}", "is no longer always there"
                         if direction == SENDS else "is no longer needed")
        for name in sorted(new["required"] - old["required"]):
            self.add(direction == ACCEPTS, f"{where}.{name}", "is now needed"
                     if direction == ACCEPTS else "is now always there")

    def compare_alternatives(self, old, new, direction, where):
        def by_type(document, schema):
            alternatives = [self.whole(document, one) for one in schema.get("oneOf", [])]
            return {shown(types(one)): one for one in alternatives}
        was, now = by_type(self.old, old), by_type(self.new, new)
        for kind in was:
            if kind in now:
                self.compare(was[kind], now[kind], direction, where)
            else:
                self.add(direction == ACCEPTS, where, f"is never {kind} any more")
        for kind in now:
            if kind not in was:
                self.add(direction == SENDS, where, f"may be {kind} now")

    def compare_conditions(self, old, new, direction, where):
        was, now = (list(schema.get("conditions", {}).values()) for schema in (old, new))
        if [one["if"] for one in was] != [one["if"] for one in now]:
            # One that was added makes it narrower, one that is gone wider.
            is_safe = not was and direction == SENDS or not now and direction == ACCEPTS
            self.add(not is_safe, where, "its conditions (\"if\") changed")
            return
        for before, after in zip(was, now):
            for part in ("then", "else"):
                self.compare(before.get(part, {}), after.get(part, {}), direction, where)

    # -- operations ------------------------------------------------------------------

    def compare_documents(self):
        old, new = self.old["operations"], self.new["operations"]
        for name in [*old, *(name for name in new if name not in old)]:
            if name not in new:
                self.add(True, name, "the operation is gone")
            elif name not in old:
                self.add(False, name, "the operation is new")
            else:
                self.compare_operations(name, old[name], new[name])

    def compare_operations(self, name, old, new):
        for key in ("action", "bindings"):
            if old.get(key) != new.get(key):
                self.add(True, name, f"{key} changed")
        for key in ("summary", "description", "x-request"):
            if old.get(key) != new.get(key):
                self.add(False, name, f"{key} changed")
        direction = ACCEPTS if old["action"] == "receive" else SENDS
        self.compare_topic(name, old, new)
        self.compare_messages(name, old, new, direction)
        if "reply" in old and "reply" in new:
            self.compare_topic(name + " reply", old["reply"], new["reply"])
            self.compare_messages(name + " reply", old["reply"], new["reply"], SENDS)
        elif "reply" in old or "reply" in new:
            self.add("reply" in old, name, "the reply is gone" if "reply" in old else
                     "has a reply now")

    def compare_topic(self, where, old, new):
        def topic(document, operation):
            channel = contract.resolve(document, operation["channel"])
            defaults = {key: contract.resolve(document, value).get("default")
                        for key, value in channel.get("parameters", {}).items()}
            return channel["address"], defaults
        was, now = topic(self.old, old), topic(self.new, new)
        if was != now:
            self.add(True, where, f"topic {was[0]} became {now[0]}")

    def compare_messages(self, where, old, new, direction):
        def messages(document, operation):
            found = (contract.resolve(document, one) for one in operation["messages"])
            return {message["name"]: message["payload"] for message in found}
        was, now = messages(self.old, old), messages(self.new, new)
        for name in [*was, *(name for name in now if name not in was)]:
            if name not in now:
                self.add(True, where, f"message {name} is gone")
            elif name not in was:
                self.add(False, where, f"message {name} is new")
            else:
                self.compare(was[name], now[name], direction, where)


def types(schema):
    """The types that a schema allows."""
    if "type" in schema:
        named = schema["type"] if isinstance(schema["type"], list) else [schema["type"]]
        found = set(named)
    elif "const" in schema or "enum" in schema:
        found = {type_of(value) for value in schema.get("enum", [schema.get("const")])}
    else:
        return set(ALL_TYPES)
    return found | {"integer"} if "number" in found else found


def type_of(value):
    for kind, name in ((bool, "boolean"), (int, "integer"), (float, "number"), (str, "string"),
                       (list, "array"), (dict, "object")):
        if isinstance(value, kind):
            return name
    return "null"


def shown(kinds):
    return "anything" if kinds == ALL_TYPES else "/".join(sorted(kinds))


def values(schema):
    """What a schema enumerates, as JSON; None where it does not."""
    if "const" in schema:
        return [json.dumps(schema["const"])]
    return [json.dumps(value) for value in schema["enum"]] if "enum" in schema else None


def gathered(lines):
    """The same change of many operations as one line."""
    operations = {}
    for line in lines:
        operation, _, rest = re.match(r"(\w+)([ .:]*)(.*)", line).groups()
        operations.setdefault(rest, []).append((operation, line))
    for rest, found in operations.items():
        if len(found) > 3:
            yield f"{len(found)} operations: {rest}"
        else:
            yield from (line for _, line in found)


def major(document):
    return int(document["info"]["version"].split(".")[0])


def difference(old, new):
    """The changes, and whether they are allowed."""
    changes = Changes(old, new)
    changes.compare_documents()
    return changes, not changes.breaking or major(new) > major(old)


def is_revision(text):
    return subprocess.run(["git", "rev-parse", "--verify", "--quiet", text + "^{commit}"],
                          cwd=contract.HERE, capture_output=True, check=False).returncode == 0


def of_revision(revision):
    """The contract as a git revision has it; None where it has none."""
    shown_file = subprocess.run(["git", "show", f"{revision}:contract/asyncapi.json"],
                                cwd=contract.HERE, capture_output=True, text=True, check=False)
    return json.loads(shown_file.stdout) if shown_file.returncode == 0 else None


def main(arguments):
    if len(arguments) != 1:
        print(__doc__, file=sys.stderr)
        return 2
    if not is_revision(arguments[0]):
        print(f"contract-diff: {arguments[0]} is no revision", file=sys.stderr)
        return 2
    old, new = of_revision(arguments[0]), contract.load()
    if old is None:
        print(f"{arguments[0]} has no contract to compare with")
        return 0
    changes, is_allowed = difference(old, new)
    for title, found in (("breaks clients", changes.breaking), ("does not", changes.other)):
        for line in gathered(found):
            print(f"{title}: {line}")
    versions = f"{old['info']['version']} to {new['info']['version']}"
    print(f"{len(changes.breaking)} breaking changes, {len(changes.other)} others, "
          f"version {versions}")
    if not is_allowed:
        print("a change that breaks clients needs a new major version", file=sys.stderr)
    return 0 if is_allowed else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
