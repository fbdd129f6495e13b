#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets (fuzz/corpus/TARGET/). The targets read their
choices (context switches, type numbers, object bytes) from the end of the input, as
FuzzedDataProvider does, and the YAML text from its start; the seeds follow that layout."""
import os, pathlib, shutil

here = pathlib.Path(__file__).parent
TEST_IF, NHGROUP = 0, 63


def context(client=1, object_set=0, verbose=1, router=1):
    return [(client, 1), (object_set, 1), (verbose, 1), (router, 1)]

RECORDS = {
    "create_get_delete": "[ {op: create, key_a: 1, attr_a1: 5, hdl: a}, {op: get, key_a: 1, attr_a1: 5, attr_a2: NOT_SET},"
                         " {op: update, key_a: 1, attr_a2: 0x10}, {op: get_first, npu_result: [0, 0]}, {op: delete, key_a: 1} ]",
    "walk_and_replay": "[ {op: walk_by_key, key_a: 2, depth: 3, trans_id: 9}, {op: replay}, {op: eod, rc: ENOENT} ]",
    # a number with no 64-bit integer where constants are read: once an undefined conversion
    "no_integer": "[ {op: create, key_a: 1, npu_result: [1e400], rc: 1e400} ]",
    # state probes of numbers with no 64-bit integer: once an undefined conversion
    "state_probe_no_integer": "[ {op: create, key_a: 1}, {op: get, key_a: 1, npd_state: {node0: {x: 1e400, y: -1e30, z: .nan}}} ]",
    "refs": "[ {op: create, key_a: 3, testethport_refhdl: a, rdesc_id_test1: 7, npd_state: {node0: {state: programmed}}} ]",
}
NHGROUP_RECORDS = "[ {op: create, nhgroup_id: 7, fec_id: 0x10, members: [ {is_protected: true, forward_class: 3}, {forward_class: 1} ]}," \
                  " {op: get, nhgroup_id: 7, members: [ {forward_class: 3} ]} ]"

def write(target, name, data):
    (here / "corpus" / target / name).write_bytes(data)

def main():
    for target in ("loader", "send", "receive", "convert"):
        d = here / "corpus" / target
        shutil.rmtree(d, ignore_errors=True)
        d.mkdir(parents=True)
    for example in (e for e in sorted((here.parent / "examples").glob("*.yaml")) if e.stat().st_size <= 4096):
        write("loader", example.name, example.read_bytes())
    write("loader", "json.json", b'{"steps": [{"send": {"test_if": [{"op": "create", "key_a": 1}]}}]}')
    write("loader", "anchors.yaml", b"defaults: &d {attr_a1: 5}\nsteps:\n  - send: {test_if: [ {<<: *d, op: create, key_a: 1} ]}\n")

    # send: mode, object set, verbose, router type, then the type number (2 bytes)
    for name, records in RECORDS.items():
        write("send", name, records.encode() + tail_for([*context(), (TEST_IF, 2)]))
    write("send", "nhgroup", NHGROUP_RECORDS.encode() + tail_for([*context(), (NHGROUP, 2)]))

    # receive: context, object type, same type (nonzero), element count, op code, body length (2 bytes)
    for op, records in ((1, "[ {op: create, key_a: 1, attr_a1: 0, rc: 0} ]"), (5, "[ {op: get, attr_a1: 5, attr_a2: 7, rc: 0} ]")):
        write("receive", f"test_if_op{op}", records.encode() + tail_for([*context(), (TEST_IF, 2), (1, 1), (0, 1), (op, 1), (0, 2)]))
    write("receive", "nhgroup_get", b"[ {op: get, fec_id: 0x20, members: [ {forward_class: 2} ]} ]" +
          tail_for([*context(), (NHGROUP, 2), (1, 1), (2, 1), (5, 1), (0, 2)]))
    write("receive", "dump_router", b"[ {op: get, router: 16, key_a: 4} ]" +
          tail_for([*context(), (TEST_IF, 2), (1, 1), (0, 1), (5, 1), (0, 2)]))

    # convert: context, value type (2 bytes), then JSON (0) or raw bytes (1)
    for i, text in enumerate([b"5", b"\"0x1f\"", b"10.0.0.1", b"{a: 1}", b"[1, 2, 3]", b"true", b"-7"]):
        for value_type in (0, 5, 40, 120, 300):
            write("convert", f"json_{value_type}_{i}", text + tail_for([*context(), (value_type, 2), (0, 1)]))

def tail_for(choices):
    """Bytes that make the consumers return these values in this order."""
    out = b""
    for value, width in choices:
        # consumed from the end: the first choice is the last bytes; within a choice the byte read
        # first is the most significant
        out = value.to_bytes(width, "little") + out
    return out

if __name__ == "__main__":
    main()
