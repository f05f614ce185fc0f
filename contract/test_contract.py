"""The contract holds together, its examples hold, and spoilt ones do not."""

import copy
import re
import unittest

import contract
import docs

DOCUMENT = contract.load()
VALIDATORS = {}

# Members of good examples that may be left out, of all kinds and by schema.
OPTIONAL = {
    "bus_request": r"state_code|device_error",
    "request": r"id|expires_ms|idempotency_key",
    "request_gpio_out": r"payload\.body\.delay",
    "request_serial_data": r"payload\.body\.serialData\[0\]\.dataLen",
    "request_check_offline_record": r"payload\.body\.min_id",
    "response": r"id|waited_ms|repeated|bus(\[\d+\]\.(state_code|device_error))?",
    "message": r"id",
    "message_ivs_result": r".*\.(imagePath|imageFragmentPath)",
    "message_get_last_result": r".*\.(imagePath|imageFragmentPath)",
    "message_lanectrl_result": r"payload\.(event_type|plateid|result_id)"
                               r"|payload\.result\[0\]\.(full_image|small_image|plate_result)",
    "status": r"health\.(databases|services)\.\w+",
}
# What the device's services sent, copied without a check: any type, present or not.
COPIED = {
    "message_lanectrl_result": r"payload\.(plateid|device_info\.(?!soft_ver).*)"
                               r"|payload\.result\[0\]\.(plate_result|\w+_image\..*).*",
    "message_gpio_in": r".*TriggerResult\.\w+",
    "message_bind_device_list": r"payload\.body.*",
    "message_agent_rtsp_url": r"payload\.body.*",
    "message_agent_talkback_port": r"payload\.body.*",
    "message_wl_check_status": r"payload.*",
    "message_get_io_out_status": r"payload\.value",
    "message_get_ad_voice": r"payload\.body\..*",
    "message_get_lcd_bright": r"payload\.body\..*",
}


def validator(name):
    if name not in VALIDATORS:
        VALIDATORS[name] = contract.validator(DOCUMENT, name)
    return VALIDATORS[name]


def examples():
    """All of the contract: the name of the schema, and a document."""
    for name, message in DOCUMENT["components"]["messages"].items():
        for example in message["examples"]:
            yield name, example["payload"]
    for name, schema in contract.schemas(DOCUMENT).items():
        for example in schema.get("examples", []):
            yield name, example


def places(value, path=""):
    """Every place in a document: its path, and the object or array and key to reach it."""
    if not isinstance(value, (dict, list)):
        return
    for key in value if isinstance(value, dict) else range(len(value)):
        inner = f"{path}[{key}]" if isinstance(value, list) else f"{path}.{key}".lstrip(".")
        yield inner, value, key
        yield from places(value[key], inner)


def spoilt(document, path, spoil):
    """A copy with one place changed, or None where `spoil` has nothing to change it to."""
    result = copy.deepcopy(document)
    for found, holder, key in places(result):
        if found == path:
            return result if spoil(holder, key) is not False else None
    raise KeyError(path)


def is_listed(table, name, path):
    kind = name.split("_")[0]
    if re.match(r"(answer|response)\b", path):  # as in the message
        name = name.replace("response_", "message_", 1)
        path = re.sub(r"^(answer|response)", "payload", path)
    return any(re.fullmatch(table[key], path) for key in {kind, name} & set(table))


def may_be_anything(name, path):
    """Whether the camera copies what is there from a service."""
    return is_listed(COPIED, name, path)


def schemas_at(schema, path):
    """The schemas that say something about a place."""
    schema = contract.resolve(DOCUMENT, schema)
    if not isinstance(schema, dict):
        return
    for part in schema.get("allOf", []) + schema.get("oneOf", []):
        yield from schemas_at(part, path)
    if not path:
        yield schema
        return
    step, rest = path[0], path[1:]
    if step.isdigit():
        yield from schemas_at(schema.get("items", {}), rest)
    else:
        yield from schemas_at(schema.get("properties", {}).get(step, {}), rest)


def limits(name, path):
    """Values that a place must not take, because they leave its range or enumeration."""
    steps = [step for step in re.split(r"[.\[\]]+", path) if step]
    for schema in schemas_at({"$ref": f"#/components/schemas/{name}"}, steps):
        if "minimum" in schema:
            yield schema["minimum"] - 1
        if "maximum" in schema:
            yield schema["maximum"] + 1
        if "maxLength" in schema:
            yield "A" * (schema["maxLength"] + 4)
        if schema.get("minLength"):
            yield ""
        if "pattern" in schema:
            yield "~"
        if "enum" in schema or "const" in schema:
            yield "no such word"
            yield 4711


class Contract(unittest.TestCase):
    def test_every_message_has_an_example_and_all_hold(self):
        for name, document in examples():
            errors = [f"{error.json_path}: {error.message}"
                      for error in validator(name).iter_errors(document)]
            self.assertEqual([], errors, name)

    def test_every_reference_leads_somewhere(self):
        found = list(re.findall(r'"\$ref": "([^"]+)"', contract.text_of(DOCUMENT)))
        self.assertGreater(len(found), 300)
        for reference in found:
            contract.resolve(DOCUMENT, {"$ref": reference})

    def test_every_member_is_described(self):
        for path, holder, key in places(contract.schemas(DOCUMENT)):
            if key == "properties" and "x-" not in path and ".then" not in path:
                for name, member in holder["properties"].items():
                    member = contract.resolve(DOCUMENT, member)
                    is_part = member is False or {"properties", "allOf", "oneOf"} & set(member)
                    is_envelope = re.match(r"(request|response|message)_", path)
                    is_condition = re.search(r"\bif\.", path)
                    self.assertTrue(is_part or is_envelope or is_condition or
                                    "description" in member, f"{path}.{name}")

    def test_meanings_and_values_are_the_same(self):
        for path, holder, key in places(contract.schemas(DOCUMENT)):
            if key == "x-meanings":
                values = holder.get("enum") or [holder["const"]]
                self.assertEqual([str(value) for value in values], list(holder[key]), path)

    def test_topics_name_what_there_is(self):
        for kind in ("request", "message"):
            channel = DOCUMENT["channels"][kind]
            self.assertEqual(list(channel["messages"]), channel["parameters"]["name"]["enum"])

    def test_every_request_says_what_its_result_means(self):
        self.assertEqual(23, len(contract.requests(DOCUMENT)))
        for operation in contract.requests(DOCUMENT).values():
            self.assertLessEqual({"versions", "success", "failure"}, set(operation["x-request"]))


class SpoiltExamples(unittest.TestCase):
    def refused(self, name, document):
        return next(validator(name).iter_errors(document), None) is not None

    def check(self, spoil, is_exempt, least):
        count = 0
        for name, document in examples():
            for path, _, _ in places(document):
                changed = spoilt(document, path, spoil)
                if changed is None or is_exempt(name, path, document):
                    continue
                count += 1
                self.assertTrue(self.refused(name, changed), f"{name}: {path}")
        self.assertGreater(count, least)

    def test_without_a_member(self):
        def spoil(holder, key):
            if not isinstance(holder, dict):
                return False
            del holder[key]
            return True

        def is_exempt(name, path, document):
            return (is_listed(OPTIONAL, name, path) or may_be_anything(name, path) or
                    path == "response" and not document["result"])
        self.check(spoil, is_exempt, 300)

    def test_with_a_value_of_another_type(self):
        def spoil(holder, key):
            holder[key] = [[]] if not isinstance(holder[key], list) else {"no": "array"}
        self.check(spoil, lambda name, path, _: may_be_anything(name, path), 500)

    def test_with_a_member_that_has_no_name_in_the_contract(self):
        def spoil(holder, key):
            if not isinstance(holder[key], dict):
                return False
            holder[key]["nobody_knows"] = 1
            return True
        free = (r".*(dldb_rec|time_ctrl\[\d\]|full_image|small_image)|payload\.device_info"
                r"|health\.(databases|services)")
        self.check(spoil, lambda name, path, _: re.fullmatch(free, path) or
                   may_be_anything(name, path), 50)

    def test_with_a_value_beyond_its_limits(self):
        count = 0
        for name, document in examples():
            for path, _, _ in places(document):
                for value in limits(name, path):
                    def spoil(holder, key, value=value):
                        holder[key] = value
                    count += 1
                    self.assertTrue(self.refused(name, spoilt(document, path, spoil)),
                                    f"{name}: {path} {value!r}")
        self.assertGreater(count, 300)

    def test_a_false_result_without_a_code(self):
        name, good = "response_get_sn", {"result": False, "error": "no", "code": "refused"}
        self.assertFalse(self.refused(name, good))
        self.assertTrue(self.refused(name, {"result": False, "error": "no"}))
        self.assertTrue(self.refused(name, {"result": True, "response": None, "code": "refused"}))

    def test_a_response_that_is_too_large(self):
        good = {"result": True, "error": "the response is too large", "code": "too_large"}
        self.assertFalse(self.refused("response_get_sn", good))
        self.assertTrue(self.refused("response_get_sn", {**good, "code": "busy"}))
        self.assertTrue(self.refused("response_get_sn", {**good, "response": None}))

    def test_no_answer_of_a_request_that_has_one(self):
        good = {"result": True, "response": None, "answer": {"value": "X"}}
        self.assertFalse(self.refused("response_get_sn", good))
        self.assertTrue(self.refused("response_get_sn", {"result": True, "response": None}))

    def test_an_answer_of_a_request_that_has_none(self):
        self.assertTrue(self.refused("response_gpio_out",
                                     {"result": True, "response": None, "answer": {}}))

    def test_requests_that_the_camera_refuses(self):
        for name, body in [
                ("get_io_out_status", {"gpio": "1"}),
                ("get_image_by_id", {"id": "1"}),
                ("set_time", {"year": 1969, "month": 1, "day": 1, "hour": 0, "min": 0, "sec": 0}),
                ("set_time", {"year": "2030", "month": "13", "day": 1, "hour": 0, "min": 0,
                              "sec": 0}),
                ("wl_check_status", {"cmd": "set"}),
                ("wl_check_status", {"cmd": "set", "filter_enable": 3}),
                ("white_list_operator", {"operator_type": "select", "plate": "A"}),
                ("white_list_operator", {"operator_type": "update_or_add", "dldb_rec": {}}),
                ("lanectrl_result_cfg", {"event": "person_stay", "enable": 1}),
                ("check_offline_record", {"enable": "push"})]:
            document = {"version": "1.0", "payload": {"type": name, "body": body}}
            self.assertTrue(self.refused("request_" + name, document), document)


class Document(unittest.TestCase):
    def test_its_blocks_are_what_the_contract_says(self):
        text = docs.DOCUMENT.read_text(encoding="utf-8")
        self.assertEqual(text, docs.written(DOCUMENT, text), "run ./dev docs")

    def test_its_examples_are_those_of_the_contract(self):
        document = copy.deepcopy(DOCUMENT)
        docs.take_examples(document, docs.DOCUMENT.read_text(encoding="utf-8"))
        self.assertEqual(DOCUMENT, document, "run ./dev docs")

    def test_every_request_and_event_stands_in_it(self):
        blocks = [match.group(2) for match in docs.BLOCK.finditer(
            docs.DOCUMENT.read_text(encoding="utf-8"))]
        wanted = {f"request {name}" for name in contract.requests(DOCUMENT)}
        wanted |= {"message ivs_result", "message lanectrl_result", "message gpio_in",
                   "message serial_data", "message offline_record"}
        self.assertLessEqual(wanted, set(blocks))


if __name__ == "__main__":
    unittest.main()
