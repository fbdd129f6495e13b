"""A real editor's view of a scenario: the YAML language server, driven over stdio as an editor drives it.

usage: language_server_test.py SERVER_DIR SCHEMA_FILE
SERVER_DIR is where the build installed the npm package yaml-language-server; without it the test
is skipped (exit 77) with the reason. Prints the completion list and the time to first completion.
"""
import json
import os
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import queue

SERVER_DIR, SCHEMA_FILE = sys.argv[1:3]
README = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "README.md")
SERVER = os.path.join(SERVER_DIR, "node_modules", "yaml-language-server", "bin", "yaml-language-server")
SKIP = 77
TIMEOUT = 60  # seconds for any one answer, on a loaded machine

SETTINGS = {"yaml": {"validate": True, "hover": True, "completion": True, "schemaStore": {"enable": False}}}

# The scenario as a user has it open: a route naming its group by a direct reference, a test_if
# record with a misspelled attribute, a correct one, and a half-typed key where completion is asked for.
DOCUMENT = """# yaml-language-server: $schema={schema}
steps:
  - send:
      iproute:
        - op: create
          nhgroup_refhdl: grp
  - send:
      test_if:
        - op: create
          key_a: 1
          atr_a1: 5
          attr_a1: 7
        - op: get
          key_a: 1
          attr
"""
REFERENCE_LINE, MISSPELLED_LINE, ATTRIBUTE_LINE, COMPLETION_LINE = 5, 10, 11, 14  # 0-based, as LSP counts


def completion_in_the_readme():
    """The words of the README's block that shows what the server offers for this document's half-typed key."""
    with open(README) as f:
        after = f.read().split("# completion offers:", 1)[1]
    return after.split("```text\n", 1)[1].split("```", 1)[0].split()


class LanguageServer:
    """A minimal LSP client: JSON-RPC with Content-Length framing over the server's stdio."""

    def __init__(self):
        self.started = time.monotonic()
        self.process = subprocess.Popen(["node", SERVER, "--stdio"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)
        self.next_id = 0
        self.answers, self.notifications = {}, queue.Queue()
        self.arrived = threading.Condition()
        threading.Thread(target=self.read_messages, daemon=True).start()

    def send(self, message):
        body = json.dumps(dict(message, jsonrpc="2.0")).encode()
        self.process.stdin.write(b"Content-Length: %d\r\n\r\n" % len(body) + body)
        self.process.stdin.flush()

    def read_messages(self):
        stream = self.process.stdout
        while True:
            length = 0
            while (line := stream.readline()) not in (b"\r\n", b""):
                if line.lower().startswith(b"content-length:"):
                    length = int(line.split(b":")[1])
            if not line:
                return
            message = json.loads(stream.read(length))
            if "id" in message and "method" in message:
                self.answer_server(message)
            elif "id" in message:
                with self.arrived:
                    self.answers[message["id"]] = message
                    self.arrived.notify_all()
            else:
                self.notifications.put(message)

    def answer_server(self, request):
        """The server asks for its settings and registers capabilities; an editor answers both."""
        result = None
        if request["method"] == "workspace/configuration":
            result = [SETTINGS.get(item.get("section", ""), SETTINGS) if item.get("section") != "yaml" else SETTINGS["yaml"]
                      for item in request["params"]["items"]]
        self.send({"id": request["id"], "result": result})

    def request(self, method, params):
        self.next_id += 1
        ident = self.next_id
        self.send({"id": ident, "method": method, "params": params})
        with self.arrived:
            if not self.arrived.wait_for(lambda: ident in self.answers, TIMEOUT):
                raise TimeoutError(f"no answer to {method} in {TIMEOUT} s")
            answer = self.answers.pop(ident)
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def notify(self, method, params):
        self.send({"method": method, "params": params})

    def diagnostics(self, uri):
        deadline = time.monotonic() + TIMEOUT
        while time.monotonic() < deadline:
            try:
                message = self.notifications.get(timeout=max(0.1, deadline - time.monotonic()))
            except queue.Empty:
                break
            if message.get("method") == "textDocument/publishDiagnostics" and message["params"]["uri"] == uri:
                if message["params"]["diagnostics"]:
                    return message["params"]["diagnostics"]
        raise TimeoutError(f"no diagnostics in {TIMEOUT} s")

    def cpu_seconds(self):
        """The server's processor time so far: on a loaded machine the wall-clock time says little."""
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as f:
            fields = f.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def close(self):
        try:
            self.request("shutdown", None)
            self.notify("exit", None)
            self.process.wait(timeout=10)
        except (TimeoutError, RuntimeError, OSError, subprocess.TimeoutExpired):
            self.process.kill()
            self.process.wait()


class TheEditorSeesTheCatalogue(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        path = os.path.join(cls.folder.name, "bring_up.yaml")
        with open(path, "w", encoding="utf-8") as f:
            f.write(DOCUMENT.format(schema="file://" + os.path.abspath(SCHEMA_FILE)))
        cls.uri = "file://" + path
        cls.server = server = LanguageServer()
        server.request("initialize", {
            "processId": os.getpid(), "rootUri": "file://" + cls.folder.name, "workspaceFolders": None,
            "capabilities": {"workspace": {"configuration": True},
                             "textDocument": {"completion": {"completionItem": {"snippetSupport": False}},
                                              "hover": {"contentFormat": ["markdown", "plaintext"]},
                                              "publishDiagnostics": {}}}})
        server.notify("initialized", {})
        server.notify("workspace/didChangeConfiguration", {"settings": SETTINGS})
        with open(path, encoding="utf-8") as f:
            server.notify("textDocument/didOpen", {"textDocument": {"uri": cls.uri, "languageId": "yaml", "version": 1,
                                                                    "text": f.read()}})
        completion = server.request("textDocument/completion", {"textDocument": {"uri": cls.uri},
                                                                "position": {"line": COMPLETION_LINE, "character": 14}})
        cls.first_completion_seconds = time.monotonic() - server.started
        cls.first_completion_cpu_seconds = server.cpu_seconds()
        cls.completion = completion["items"] if isinstance(completion, dict) else completion

    @classmethod
    def tearDownClass(cls):
        cls.server.close()
        cls.folder.cleanup()
        print(f"time to first completion: {cls.first_completion_seconds:.2f} s "
              f"({cls.first_completion_cpu_seconds:.2f} s of the server's processor time; "
              f"schema {os.path.getsize(SCHEMA_FILE)} bytes)", file=sys.stderr)

    def test_completion_in_a_test_if_record_offers_its_attributes(self):
        labels = [item["label"] for item in self.completion]
        print("completion in a test_if record:", " ".join(labels), file=sys.stderr)
        for attribute in ("attr_a1", "attr_a5", "rdesc_id_test1", "eth_obj_testethport_refhdl", "npu_mask", "members"):
            self.assertIn(attribute, labels)
        self.assertNotIn("nh_id", labels)  # a key field of test_nh, not of test_if
        self.assertEqual(labels, completion_in_the_readme(), "README.md shows another completion list")

    def test_hover_on_an_attribute_shows_its_value_type(self):
        asked = time.monotonic()
        hover = self.server.request("textDocument/hover", {"textDocument": {"uri": self.uri},
                                                           "position": {"line": ATTRIBUTE_LINE, "character": 12}})
        print(f"hover answered in {time.monotonic() - asked:.3f} s", file=sys.stderr)
        contents = hover["contents"]
        text = contents["value"] if isinstance(contents, dict) else json.dumps(contents)
        print("hover on attr_a1:", text.replace("\n", " / "), file=sys.stderr)
        self.assertIn("uint (value): unsigned 32-bit number", text)

    def hover(self, line):
        hover = self.server.request("textDocument/hover", {"textDocument": {"uri": self.uri},
                                                           "position": {"line": line, "character": 12}})
        contents = hover["contents"]
        return contents["value"] if isinstance(contents, dict) else json.dumps(contents)

    def test_hover_on_a_reference_names_the_type_it_takes_and_that_type_s_gate(self):
        text = self.hover(REFERENCE_LINE)
        print("hover on nhgroup_refhdl:", text.replace("\n", " / "), file=sys.stderr)
        self.assertIn("takes the handle of an object of type nhgroup (active while object_set is 0)", text)

    def test_a_misspelled_attribute_gets_a_diagnostic(self):
        diagnostics = self.server.diagnostics(self.uri)
        lines = {d["range"]["start"]["line"]: d["message"] for d in diagnostics}
        print("diagnostic on atr_a1:", lines.get(MISSPELLED_LINE), file=sys.stderr)
        self.assertIn(MISSPELLED_LINE, lines)
        self.assertIn("atr_a1", lines[MISSPELLED_LINE])
        self.assertNotIn(ATTRIBUTE_LINE, lines)


if __name__ == "__main__":
    if not os.path.exists(SERVER):
        print(f"skipped: the YAML language server is not installed in {SERVER_DIR} "
              "(the build installs it with npm when the npm registry is reachable)")
        sys.exit(SKIP)
    unittest.main(argv=sys.argv[:1], verbosity=2)
