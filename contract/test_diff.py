"""Each kind of change is told apart: what breaks a client, and what does not."""

import copy
import unittest

import contract
import diff

DOCUMENT = contract.load()


class Difference(unittest.TestCase):
    def setUp(self):
        self.new = copy.deepcopy(DOCUMENT)
        self.schemas = contract.schemas(self.new)

    def changes(self):
        return diff.difference(DOCUMENT, self.new)[0]

    def breaks(self, line):
        changes = self.changes()
        self.assertIn(line, changes.breaking)
        self.assertFalse(diff.difference(DOCUMENT, self.new)[1])

    def does_not_break(self, line):
        changes = self.changes()
        self.assertEqual([], changes.breaking)
        self.assertIn(line, changes.other)

    def plate(self):
        alarm = self.schemas["payload_ivs_result"]["properties"]["AlarmInfoPlate"]
        return alarm["properties"]["result"]["properties"]["PlateResult"]

    def body(self, name):
        payload = self.schemas["request_" + name]["properties"]["payload"]
        return payload["properties"]["body"]

    # What the camera sends.

    def test_nothing(self):
        changes = self.changes()
        self.assertEqual(([], []), (changes.breaking, changes.other))

    def test_a_member_that_is_sent_gone(self):
        del self.plate()["properties"]["confidence"]
        self.breaks("message_ivs_result.payload.AlarmInfoPlate.result.PlateResult.confidence: "
                    "the camera no longer sends it")

    def test_a_member_that_is_sent_made_optional(self):
        self.schemas["payload_get_sn"]["required"] = []
        self.breaks("message_get_sn.payload.value: is no longer always there")
        self.assertIn("request_get_sn reply.answer.value: is no longer always there",
                      self.changes().breaking)

    def test_a_new_member_that_is_sent(self):
        self.plate()["properties"]["speed"] = {"type": "integer"}
        self.does_not_break("message_ivs_result.payload.AlarmInfoPlate.result.PlateResult.speed: "
                            "the camera now sends it")

    def test_a_member_that_is_always_sent_now(self):
        self.schemas["response"]["required"].append("waited_ms")
        self.does_not_break("request_get_sn reply.waited_ms: is now always there")

    def test_another_type_sent(self):
        self.schemas["payload_get_sn"]["properties"]["value"]["type"] = "integer"
        self.breaks("message_get_sn.payload.value: type string became integer")

    def test_null_sent_where_it_was_not(self):
        self.schemas["payload_get_sn"]["properties"]["value"]["type"] = ["string", "null"]
        self.breaks("message_get_sn.payload.value: type string became null/string")

    def test_a_type_promised_that_was_not(self):
        self.schemas["payload_get_io_out_status"]["properties"]["value"]["type"] = "integer"
        self.does_not_break("message_get_io_out_status.payload.value: type anything became integer")

    def test_a_wider_range_sent(self):
        self.plate()["properties"]["carColor"]["maximum"] = 65535
        self.breaks("message_ivs_result.payload.AlarmInfoPlate.result.PlateResult.carColor: "
                    "maximum 255 became 65535")

    def test_another_encoding_sent(self):
        del self.plate()["properties"]["license"]["contentEncoding"]
        self.breaks("message_ivs_result.payload.AlarmInfoPlate.result.PlateResult.license: "
                    "encoding base64 became None")

    def test_a_code_renamed(self):
        codes = self.schemas["code"]["enum"]
        codes[codes.index("busy")] = "overloaded"
        self.breaks('request_get_sn reply.code: value "busy" is gone')

    def test_a_new_code(self):
        self.schemas["code"]["enum"].append("tired")
        self.does_not_break('request_get_sn reply.code: value "tired" is new')

    def test_another_tag(self):
        self.schemas["message_get_sn"]["properties"]["tag"]["const"] = 99
        self.breaks("message_get_sn.tag: value 25 is gone")

    def test_values_sent_that_are_no_longer_enumerated(self):
        member = self.schemas["payload_white_list_operator"]["properties"]["operator_type"]
        del member["enum"]
        member["type"] = "string"
        self.breaks("message_white_list_operator.payload.operator_type: "
                    "its values are no longer enumerated")

    def test_an_error_without_its_code(self):
        self.schemas["response"]["else"]["required"].remove("code")
        self.breaks("request_get_sn reply.code: is no longer always there")

    def test_an_answer_gone(self):
        self.schemas["response_get_sn"]["properties"]["answer"] = False
        self.breaks("request_get_sn reply.answer: the camera no longer sends it")

    def test_a_reply_gone(self):
        del self.new["operations"]["request_get_sn"]["reply"]
        self.breaks("request_get_sn: the reply is gone")

    def test_another_message(self):
        self.new["components"]["messages"]["message_get_sn"]["name"] = "get_serial"
        self.breaks("message_get_sn: message get_sn is gone")

    def test_a_status_that_is_no_longer_retained(self):
        self.new["operations"]["status"]["bindings"]["mqtt"]["retain"] = False
        self.breaks("status: bindings changed")

    # What it accepts.

    def test_a_request_gone(self):
        del self.new["operations"]["request_reboot_dev"]
        self.breaks("request_reboot_dev: the operation is gone")

    def test_a_new_request(self):
        self.new["operations"]["request_wash"] = self.new["operations"]["request_reboot_dev"]
        self.does_not_break("request_wash: the operation is new")

    def test_a_member_newly_needed(self):
        self.body("gpio_out")["required"].append("delay")
        self.breaks("request_gpio_out.payload.body.delay: is now needed")

    def test_a_member_no_longer_needed(self):
        self.body("gpio_out")["required"].remove("value")
        self.does_not_break("request_gpio_out.payload.body.value: is no longer needed")

    def test_a_member_no_longer_accepted(self):
        del self.schemas["request"]["properties"]["expires_ms"]
        self.breaks("request_gpio_out.expires_ms: the camera no longer accepts it")

    def test_a_new_member_accepted(self):
        self.body("gpio_out")["properties"]["times"] = {"type": "integer"}
        self.does_not_break("request_gpio_out.payload.body.times: the camera now accepts it")

    def test_a_narrower_range(self):
        self.body("wl_check_status")["properties"]["filter_enable"]["maximum"] = 1
        self.breaks("request_wl_check_status.payload.body.filter_enable: maximum 2 became 1")

    def test_a_wider_range(self):
        self.body("wl_check_status")["properties"]["filter_enable"]["maximum"] = 3
        self.does_not_break("request_wl_check_status.payload.body.filter_enable: "
                            "maximum 2 became 3")

    def test_a_type_no_longer_accepted(self):
        self.body("set_time")["properties"]["year"]["type"] = "integer"
        self.breaks("request_set_time.payload.body.year: type integer/string became integer")

    def test_an_alternative_no_longer_accepted(self):
        self.body("white_list_operator")["properties"]["plate"]["oneOf"].pop()
        self.breaks("request_white_list_operator.payload.body.plate: is never array any more")

    def test_a_new_alternative(self):
        self.body("white_list_operator")["properties"]["plate"]["oneOf"].append({"type": "null"})
        self.does_not_break("request_white_list_operator.payload.body.plate: may be null now")

    def test_another_pattern(self):
        self.body("set_time")["properties"]["sec"]["pattern"] = "^[0-5][0-9]$"
        self.assertIn("pattern", "".join(self.changes().breaking))

    def test_a_narrower_range_of_an_element(self):
        chunk = self.body("serial_data")["properties"]["serialData"]["items"]["properties"]
        chunk["data"]["maxLength"] = 100
        self.breaks("request_serial_data.payload.body.serialData[].data: maxLength 1356 became 100")

    def test_a_new_condition(self):
        self.body("gpio_out")["if"] = {"properties": {"value": {"const": 2}}}
        self.breaks("request_gpio_out.payload.body: its conditions (\"if\") changed")

    def test_another_topic(self):
        self.new["channels"]["request"]["address"] = "{root}/{sn}/do/{name}"
        self.breaks("request_get_sn: topic {root}/{sn}/request/{name} became {root}/{sn}/do/{name}")

    # Either.

    def test_a_description(self):
        self.plate()["properties"]["confidence"]["description"] = "How sure it is."
        self.does_not_break("message_ivs_result.payload.AlarmInfoPlate.result.PlateResult."
                            "confidence: its description changed")

    def test_a_new_major_version_may_break(self):
        del self.new["operations"]["request_reboot_dev"]
        self.new["info"]["version"] = f"{diff.major(DOCUMENT) + 1}.0.0"
        changes, is_allowed = diff.difference(DOCUMENT, self.new)
        self.assertTrue(changes.breaking and is_allowed)

    def test_a_new_minor_version_may_not(self):
        del self.new["operations"]["request_reboot_dev"]
        self.new["info"]["version"] = f"{diff.major(DOCUMENT)}.9.0"
        self.assertFalse(diff.difference(DOCUMENT, self.new)[1])

    def test_a_condition_on_what_is_sent(self):
        self.schemas["payload_get_sn"]["if"] = {"properties": {"value": {"const": ""}}}
        self.does_not_break("message_get_sn.payload: its conditions (\"if\") changed")

    def test_a_condition_that_is_no_longer_asked_for(self):
        del self.body("check_offline_record")["if"]
        self.does_not_break("request_check_offline_record.payload.body: "
                            "its conditions (\"if\") changed")

    def test_the_same_change_of_many_operations_is_told_once(self):
        lines = [f"request_{name} reply.code: value 1 is new" for name in "abcd"]
        self.assertEqual(["4 operations: reply.code: value 1 is new"], list(diff.gathered(lines)))
        self.assertEqual(lines[:3], list(diff.gathered(lines[:3])))

    def test_a_revision_that_there_is_not(self):
        self.assertFalse(diff.is_revision("no-such-revision"))
        self.assertTrue(diff.is_revision("HEAD"))

    def test_a_revision_without_a_contract(self):
        self.assertIsNone(diff.of_revision("0" * 40))


if __name__ == "__main__":
    unittest.main()
