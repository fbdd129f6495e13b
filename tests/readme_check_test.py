#!/usr/bin/python3
"""The README checker itself, on small READMEs of our own: it must fail on a changed line, on a block
that escapes it, and pass what it should, so that its verdict on the real README means something.

usage: readme_check_test.py PLANECHECK SCRATCH_DIR
"""
import contextlib
import importlib.util
import io
import os
import sys
import unittest

PLANECHECK, SCRATCH = sys.argv[1:3]
del sys.argv[1:3]
spec = importlib.util.spec_from_file_location("readme_check", os.path.join(os.path.dirname(__file__), "readme_check.py"))
readme_check = importlib.util.module_from_spec(spec)
spec.loader.exec_module(readme_check)

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
HELLO = """```console
$ planecheck run -q examples/hello.yaml
planecheck: PASSED: 1 file, 5 steps, 0 mismatches, 0 value errors
```
"""


class TheChecker(unittest.TestCase):
    def check(self, readme):
        """(exit status, what the checker printed) for a README of the given text, beside the real examples."""
        source = os.path.join(SCRATCH, "source")
        os.makedirs(source, exist_ok=True)
        for folder in ("examples", "tests"):
            if not os.path.exists(os.path.join(source, folder)):
                os.symlink(os.path.join(SOURCE, folder), os.path.join(source, folder))
        with open(os.path.join(source, "README.md"), "w") as f:
            f.write(readme)
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            status = readme_check.check_outputs(PLANECHECK, source, os.path.dirname(PLANECHECK), os.path.join(SCRATCH, "run"))
        return status, out.getvalue()

    def test_a_true_block_passes_and_one_changed_line_fails_with_a_diff_at_the_block_s_line(self):
        self.assertEqual(self.check("# x\n\n" + HELLO), (0, "readme_check: 1 console blocks, 0 problems\n"))
        status, out = self.check("# x\n\n" + HELLO.replace("5 steps", "6 steps"))
        self.assertEqual(status, 1)
        self.assertIn("--- README.md:3 (shown)", out)
        self.assertIn("-planecheck: PASSED: 1 file, 6 steps, 0 mismatches, 0 value errors\n"
                      "+planecheck: PASSED: 1 file, 5 steps, 0 mismatches, 0 value errors", out)

    def test_an_ellipsis_stands_for_lines_but_not_for_a_wrong_one(self):
        shown = "```console\n$ planecheck run examples/hello.yaml\n...\nplanecheck: PASSED: 1 file, 5 steps, 0 mismatches, 0 value errors\n```\n"
        self.assertEqual(self.check(shown)[0], 0)
        status, out = self.check(shown.replace("...\n", "...\nexamples/hello.yaml:99: step 9 send test_if: ok\n"))
        self.assertEqual(status, 1)
        # the diff leaves out the lines the ellipsis stood for
        self.assertNotIn("step 1 send test_if", out)
        self.assertIn("-examples/hello.yaml:99: step 9 send test_if: ok", out)
        self.assertFalse(readme_check.fits(["a", "...", "c"], ["a", "b"]))
        self.assertTrue(readme_check.fits(["...", "c"], ["c"]))

    def test_times_ids_and_absolute_paths_are_masked_alike_and_nothing_else(self):
        masked = readme_check.masked
        self.assertEqual(masked('{"time":"2026-01-01T00:00:00Z","duration":1.5,"run_id":"ab"}'),
                         masked('{"time":"…","duration":22.677,"run_id":"cd"}'))
        self.assertEqual(masked("rootdir: /tmp/x/examples, configfile: pytest.ini"), masked("rootdir: /home/me/examples, configfile: pytest.ini"))
        self.assertNotEqual(masked("--shard 1/2 suite/a.yaml"), masked("--shard 2/2 suite/a.yaml"))
        self.assertNotEqual(masked('"steps":3,"failed_steps":0'), masked('"steps":3,"failed_steps":2'))

    def test_a_directory_s_set_up_runs_first_and_later_blocks_of_it_share_its_files(self):
        readme = ("<!-- console: directory d\nprintf 'name: mine\\nsteps:\\n  - send: { test_if: [ { op: create, key_a: 1 } ] }\\n' >mine.yaml\n-->\n"
                  "```console\n$ planecheck run -q mine.yaml\nplanecheck: PASSED: 1 file, 1 step, 0 mismatches, 0 value errors\n```\n\n"
                  "<!-- console: directory d -->\n```console\n$ head -1 mine.yaml\nname: mine\n```\n\n"
                  "```console\n$ ls mine.yaml\nmine.yaml\n```\n")
        status, out = self.check(readme)
        self.assertEqual(status, 1)  # the third block has a fresh directory of its own
        self.assertIn("--- README.md:15 (shown)", out)
        self.assertIn("@@ -16,2 ", out)  # hunks count README lines
        self.assertIn("+ls: cannot access 'mine.yaml'", out)
        self.assertIn("3 console blocks, 1 problems", out)
        status, out = self.check("<!-- console: directory broken\ncp nosuch.yaml here.yaml\n-->\n" + HELLO)
        self.assertEqual(status, 1)
        self.assertIn("README.md:4: the set-up failed with exit status 1:\ncp: cannot stat 'nosuch.yaml'", out)

    def test_blocks_that_would_escape_the_check_are_refused(self):
        status, out = self.check(HELLO + "\n```\nplanecheck: PASSED\n```\n\n```sh\n$ planecheck run x.yaml\n```\n")
        self.assertEqual(status, 1)
        self.assertIn("README.md:6: a code block without a language", out)
        self.assertIn("README.md:10: a sh block shows `$ ` commands", out)
        status, out = self.check("<!-- console: dir d -->\n" + HELLO)
        self.assertIn("README.md:2: a console comment starts `console: directory NAME`", out)
        self.assertEqual(self.check("no blocks\n")[0], 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
