"""A scenario's name: read from the header of each form, for test names and -k."""
import pytest

from planecheck.scenario_name import node_id_part, scenario_name


@pytest.mark.parametrize("header, name", [
    ("name: l3 bring-up                 # optional\nsteps: []\n", "l3 bring-up"),
    ("# a comment\nconfig: { mode: client }\nname: after config\n", "after config"),
    ('name: "quoted # not a comment \\u00e9"\n', "quoted # not a comment \u00e9"),
    ("name: 'it''s'\n", "it's"),
    ("name: a#b\n", "a#b"),
    ("name: |\n  block\n", None),        # left to the run to read
    ("steps:\n  - name: inside a step\n", None),
    ("config:\n  name: nested\n", None),
    ("name:\n", None),
])
def test_the_yaml_header_gives_the_name_as_yaml_reads_it(tmp_path, header, name):
    path = tmp_path / "test_x.yaml"
    path.write_text(header)
    assert scenario_name(path) == name


@pytest.mark.parametrize("suffix, text, name", [
    (".json", '{"steps": [], "name": "json"}', "json"),
    (".json", '{"name": 7}', None),
    (".json", '{"name": "cut', None),
    (".jsonl", '\n\n{"name": "lines"}\n{"send": {}}\n', "lines"),
    (".jsonl", '{"send": {"name": "a step"}}\n', None),
])
def test_the_json_forms_give_the_name_of_their_header(tmp_path, suffix, text, name):
    path = tmp_path / f"test_x{suffix}"
    path.write_text(text)
    assert scenario_name(path) == name


def test_a_file_that_cannot_be_read_has_no_name(tmp_path):
    assert scenario_name(tmp_path / "missing.yaml") is None


@pytest.mark.parametrize("name, part", [
    ("l3 bring-up [v4] é/#'\"", "l3 bring-up [v4] é/#'\""),   # left as it is
    ("a::b", "a:\\:b"),
    ("::x:::", ":\\:x:\\:\\:"),
    ("a: b :c", "a: b :c"),                                   # lone colons stay
    ("C:\\dir\\:", "C:\\\\dir\\\\:"),                         # so that an escape reads back to one name
    ("one\ntwo\r\tend", "one\\ntwo\\r\\tend"),
    ("bell\a nel\x85 del\x7f ls\u2028 \ud800", "bell\\x07 nel\\x85 del\\x7f ls\\u2028 \\ud800"),
])
def test_a_name_in_a_node_id_has_no_separator_and_no_line_break(name, part):
    assert node_id_part(name) == part
