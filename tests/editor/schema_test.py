"""The scenario schema against the scenarios, the traps that planecheck check finds, and the catalogue.

usage: schema_test.py PLANECHECK CATGEN SOURCE_DIR SCHEMA_FILE
"""
import glob
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

import jsonschema

import scenario_yaml

PLANECHECK, CATGEN, SOURCE, SCHEMA_FILE = sys.argv[1:5]

# Test scenarios written to be refused or to provoke findings, left out of "every scenario validates":
DELIBERATELY_INVALID = {
    "traps.yaml": "every trap planecheck check knows, one per line",
    "unknown_table.yaml": "a table that is no object type, to end the run with exit status 1",
    "unknown_keys.yaml": "misspelled record keys, to be reported as value errors",
    "bad_values.yaml": "values their converters refuse, to be counted as value errors",
    "bad_step.yaml": "a step kind that does not exist, to be refused",
    "bad_inject.yaml": "an inject: step planecheck refuses",
    "bad_yaml.yaml": "a YAML syntax error",
    "empty_batch.yaml": "an empty batch, which ends the process by an assertion",
    "batch.yaml": "a misspelled element attribute (forward_clas) that the batch passes over",
}

# The traps the schema must flag as well, by the words of their "# trap:" comment.
SCHEMA_TRAPS = ("unknown table", "no such op", "eod on a type without end of data", "unknown record key",
                "enum number outside its values")


def run(*args):
    return subprocess.run(args, capture_output=True, text=True, check=False)


def output(*args):
    result = run(*args)
    return result.stdout + result.stderr


def stats(output):
    return dict(line.split(": ", 1) for line in output.splitlines() if ": " in line)


class Schema:
    text = run(PLANECHECK, "catalogue", "--schema").stdout
    document = json.loads(text)
    validator = jsonschema.Draft7Validator(document)

    @classmethod
    def step_errors(cls, step):
        """What the schema finds in one step, validated as the steps of a file are."""
        one_step = dict(cls.document, required=[], properties={"steps": cls.document["properties"]["steps"]})
        return list(jsonschema.Draft7Validator(one_step).iter_errors({"steps": [step]}))


class TheSchemaIsWellFormed(unittest.TestCase):
    def test_the_command_prints_the_generated_file(self):
        with open(SCHEMA_FILE, encoding="utf-8") as f:
            self.assertEqual(Schema.text, f.read())
        jsonschema.Draft7Validator.check_schema(Schema.document)
        self.assertEqual(Schema.document["$schema"], "http://json-schema.org/draft-07/schema#")

    def test_every_reference_resolves(self):
        definitions = Schema.document["definitions"]
        refs = set(re.findall(r'"\$ref":\s*"#/definitions/([^"]+)"', Schema.text))
        self.assertTrue(refs)
        self.assertEqual(sorted(refs - definitions.keys()), [])


class ScenariosValidate(unittest.TestCase):
    def scenario_files(self):
        files = sorted(glob.glob(os.path.join(SOURCE, "examples", "*.yaml")))
        files += sorted(glob.glob(os.path.join(SOURCE, "tests", "scenarios", "*.yaml")))
        self.assertGreater(len(files), 10)
        return [f for f in files if os.path.basename(f) not in DELIBERATELY_INVALID]

    def test_every_example_and_test_scenario_validates(self):
        for path in self.scenario_files():
            with self.subTest(path=os.path.relpath(path, SOURCE)):
                errors = [f"{list(e.absolute_path)}: {e.message[:200]}" for e in Schema.validator.iter_errors(scenario_yaml.load(path))]
                self.assertEqual(errors, [])

    def check_finds(self, step):
        """Whether planecheck check, which runs the real converters, finds anything in the step."""
        with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as f:
            json.dump({"steps": [step]}, f)
        try:
            return run(PLANECHECK, "check", f.name).returncode != 0
        finally:
            os.unlink(f.name)

    def test_value_forms_the_converters_take_validate(self):
        records = [{"op": "create", "key_a": "0x10", "attr_a1": "ENOENT", "attr_a2": True, "attr_a3": "NOT_SET",
                    "do_test_shared_key": "Yes", "rdesc_id_test1": {"pool": 1, "index": "2"}, "hdl": "if1",
                    "testethport_refhdl": "0x1234", "eth_obj_testethport_refkey": {"port_id": 3},
                    "members": [{"npu_op_count": 5}]},
                   {"op": "get", "key_a": 4294967295, "rc": "DONT_CARE"}]
        for step in ({"send": {"test_if": records}},
                     {"send": {"bfdoff": [{"op": "create", "local_state": "UP"},
                                          {"op": "create", "local_state": "Dpa_BfdOff_Local_State_Init"},
                                          {"op": "create", "local_state": 3}]}}):
            with self.subTest(step=step):
                self.assertEqual(Schema.step_errors(step), [])
                self.assertFalse(self.check_finds(step))

    def test_values_the_converters_refuse_are_errors(self):
        for type_name, record in (("test_if", {"op": "create", "key_a": 4294967296}), ("test_if", {"op": "create", "key_a": -1}),
                                  ("test_if", {"op": "create", "attr_a1": "five"}),
                                  ("test_if", {"op": "create", "rdesc_id_test1": {"pool": 1, "slot": 2}}),
                                  ("test_if", {"op": "create", "do_test_shared_key": "maybe"}), ("test_if", {"op": "getx"}),
                                  ("bfdoff", {"op": "create", "local_state": "upp"})):
            step = {"send": {type_name: [record]}}
            with self.subTest(record=record):
                self.assertNotEqual(Schema.step_errors(step), [])
                self.assertTrue(self.check_finds(step))
        # what only the schema sees: an element key that the library passes over, and step shapes
        self.assertNotEqual(Schema.step_errors({"send": {"test_if": [{"op": "create", "members": [{"npu_op_cnt": 1}]}]}}), [])
        self.assertNotEqual(Schema.step_errors({"sdk": {"test_if": [{"op": "get"}]}}), [])  # sdk: without send:
        self.assertNotEqual(Schema.step_errors({"send": {"test_if": []}, "dump": {"test_if": []}}), [])


class ExpectFindingsFollowTheVocabulary(unittest.TestCase):
    def test_named_findings_validate_and_bad_entries_are_refused(self):
        good = {"expect": {"mismatches": 1, "findings": [{"attribute": "attr_a1"}, {"status": "EBUSY"}, {"status": 16},
                                                         {"text": "received [0-9]+", "attribute": "rc"}]}}
        self.assertEqual(Schema.step_errors(good), [])
        self.assertFalse(ScenariosValidate().check_finds(good))
        for findings in ({"attribute": "attr_a1"}, [{}], [{"atribute": "attr_a1"}], [{"attribute": 5}], ["attr_a1"],
                         [{"text": "x"}] * 201):
            step = {"expect": {"findings": findings}}
            with self.subTest(findings=str(findings)[:60]):
                self.assertNotEqual(Schema.step_errors(step), [])
                self.assertTrue(ScenariosValidate().check_finds(step))
        # what only check sees: a status name no system has and a pattern that does not compile
        for entry in ({"status": "EBUSSY"}, {"text": "(["}):
            with self.subTest(entry=entry):
                self.assertTrue(ScenariosValidate().check_finds({"expect": {"findings": [entry]}}))

    def test_the_entry_keys_are_the_vocabulary_s(self):
        entry = Schema.document["definitions"]["expect"]["properties"]["findings"]["items"]
        with open(os.path.join(SOURCE, "catalogue", "vocabulary.yaml"), encoding="utf-8") as f:
            listed = re.search(r"^finding_fields: \[([^\]]*)\]", f.read(), re.M).group(1)
        self.assertEqual(list(entry["properties"]), [k.strip() for k in listed.split(",")])


class TrapsAreSchemaErrors(unittest.TestCase):
    def test_each_trap_check_finds_is_a_schema_error(self):
        path = os.path.join(SOURCE, "tests", "scenarios", "traps.yaml")
        findings = {int(m.group(1)) for m in re.finditer(r"traps\.yaml:(\d+):\d+: ", output(PLANECHECK, "check", path))}
        with open(path, encoding="utf-8") as f:
            traps = {n: line.split("# trap:")[1].strip() for n, line in enumerate(f, 1) if "# trap:" in line}
        steps = scenario_yaml.load(path)["steps"]
        lines = scenario_yaml.step_lines(path)
        flagged = 0
        for number, (first, last) in enumerate(lines):
            trap_lines = [n for n in traps if first <= n <= last]
            errors = Schema.step_errors(steps[number])
            if not trap_lines:
                self.assertEqual(errors, [], f"line {first} has no trap")
                continue
            for n in trap_lines:
                if traps[n].startswith(SCHEMA_TRAPS):
                    with self.subTest(line=n, trap=traps[n]):
                        self.assertIn(n, findings, "planecheck check finds it")
                        self.assertNotEqual(errors, [], "the schema finds it")
                        flagged += 1
        self.assertEqual(flagged, 8)


class CountsMatchTheCatalogue(unittest.TestCase):
    def test_types_attributes_and_enum_values(self):
        built = stats(run(PLANECHECK, "catalogue", "--stats").stdout)
        definitions = Schema.document["definitions"]
        records = {name[5:]: d for name, d in definitions.items() if name.startswith("type.")}
        attributes = roles = 0
        for record in records.values():
            element = record["properties"].get("members", {}).get("items", {}).get("properties", {})
            for prop in list(record["properties"].values()) + list(element.values()):
                described = prop.get("description", "")
                if prop.get("$ref", "").startswith("#/definitions/attr."):
                    roles += "(role " in described and described.startswith("refhdl")
                    attributes += "(role " not in described
        enum_values = sum(len(d["anyOf"][0]["enum"]) for name, d in definitions.items()
                          if name.startswith("value.") and "enum" in d.get("anyOf", [{}])[0])
        value_types = [name for name in definitions if name.startswith("value.")]
        self.assertEqual(len(records), int(built["types"]))
        self.assertEqual(attributes, int(built["attributes with an is-set accessor"]))
        self.assertEqual(roles, int(built["role-reference pairs"]))
        self.assertEqual(enum_values, int(built["enum values"]))
        self.assertEqual(len(value_types), int(built["value types"]))

    def test_references_name_the_type_they_take_and_its_gate(self):
        built = stats(run(PLANECHECK, "catalogue", "--stats").stdout)
        records = {name[5:]: d for name, d in Schema.document["definitions"].items() if name.startswith("type.")}

        def gate(type_name):
            described = records[type_name]["description"]
            for flag in ("0", "not 0"):
                if described.endswith(f"; active only while object_set is {flag}"):
                    return f"active while object_set is {flag}"
            return "always active"

        takes = re.compile(r"takes the (handle|key) of an object of type (\w+) \(([^)]*)\)")
        direct = pairs = 0
        for record in records.values():
            element = record["properties"].get("members", {}).get("items", {}).get("properties", {})
            for key, prop in list(record["properties"].items()) + list(element.items()):
                described = prop.get("description", "")
                is_direct = "(reference by handle" in described or "(reference by key" in described
                if not is_direct and "(role " not in described:
                    continue
                with self.subTest(key=key):
                    found = takes.search(described)
                    self.assertIsNotNone(found, described)
                    self.assertEqual(found[1], "key" if key.endswith("_refkey") else "handle")
                    self.assertEqual(found[3], gate(found[2]))
                    if is_direct:
                        self.assertEqual(key.rsplit("_", 1)[0], found[2])
                    direct += is_direct and found[1] == "handle"
                    pairs += "(role " in described and found[1] == "handle"
        self.assertEqual(direct, int(built["direct reference handles"]))
        self.assertEqual(pairs, int(built["role-reference pairs"]))

    def test_ops_follow_the_end_of_data_flag(self):
        definitions = Schema.document["definitions"]
        eod = [name[5:] for name, d in definitions.items()
               if name.startswith("type.") and "eod" in d["properties"]["op"]["enum"]]
        self.assertEqual(len(eod), int(stats(run(PLANECHECK, "catalogue", "--stats").stdout)["eod types"]))
        self.assertIn("ipacl", eod)
        self.assertNotIn("test_if", eod)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
