#!/usr/bin/python3
"""Deliberate faults, one at a time: which of them does the test suite catch?

Each mutant of the table (mutants.txt beside this script) replaces one snippet of source in one
file. For each, the tree is rebuilt incrementally and the suite run; the mutant is "caught" when
the build or a test fails, "survived" when everything passes, and "not applicable" when its
snippet is no longer in the tree (code moved on). The file is always restored, also on Ctrl-C or
SIGTERM, and a journal in the build directory restores it after a harder stop on the next start.

    nice -n 19 tools/mutate/mutate.py --tree . --out tools/mutate/before.json
    tools/mutate/mutate.py --list
    tools/mutate/mutate.py --only engine.op-code-range,sink.junit-system-out --tests 'Cli|Events'
    tools/mutate/mutate.py --hints tools/mutate/before.json --out tools/mutate/after.json
"""
import argparse
import glob
import json
import os
import re
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
FIELDS = ("id", "files", "what", "from", "to", "occurrence")


class Mutant:
    def __init__(self, fields, line):
        self.id = fields["id"]
        self.files = fields["files"].split()
        self.what = fields["what"]
        self.old = fields["from"]
        self.new = fields.get("to", "")
        self.occurrence = int(fields.get("occurrence", "0"))  # 0: the snippet must be unique
        self.line = line


def parse_table(path):
    """Entries are blocks of `key: value` lines parted by blank lines; `#` starts a comment line.
    Values are taken literally (a `\\n` stays two characters), so snippets read as the source does."""
    mutants, fields, start = [], {}, 0
    def close():
        if not fields:
            return
        missing = [k for k in ("id", "files", "what", "from") if k not in fields]
        if missing:
            sys.exit(f"{path}:{start}: the mutant lacks {', '.join(missing)}")
        if fields["from"] == fields.get("to", ""):
            sys.exit(f"{path}:{start}: the mutant {fields['id']} changes nothing")
        mutants.append(Mutant(dict(fields), start))
        fields.clear()
    with open(path, encoding="utf-8") as table:
        for number, text in enumerate(table, 1):
            text = text.rstrip("\n")
            if not text.strip():
                close()
                continue
            if text.lstrip().startswith("#"):
                continue
            key, colon, value = text.partition(":")
            if not colon or key not in FIELDS:
                sys.exit(f"{path}:{number}: expected one of {', '.join(FIELDS)} followed by ':'")
            if key in fields:
                sys.exit(f"{path}:{number}: {key} given twice")
            if not fields:
                start = number
            fields[key] = value[1:] if value.startswith(" ") else value
    close()
    seen = set()
    for m in mutants:
        if m.id in seen:
            sys.exit(f"{path}:{m.line}: the id {m.id} is used twice")
        seen.add(m.id)
    return mutants


def snippet_spans(text, snippet):
    """Where the snippet stands in the text: exactly, or else with any run of white space in the
    snippet matching any run in the source (a reformatted line still matches)."""
    spans, at = [], text.find(snippet)
    while at >= 0:
        spans.append((at, at + len(snippet)))
        at = text.find(snippet, at + 1)
    if spans:
        return spans, "exact"
    pattern = r"\s+".join(re.escape(word) for word in snippet.split())
    return [m.span() for m in re.finditer(pattern, text)], "spacing"


def locate(tree, mutant):
    """The file, the span to replace and how it matched; or None and the reason it does not apply."""
    tried = []
    for candidate in mutant.files:
        paths = sorted(glob.glob(os.path.join(tree, candidate), recursive=True)) if any(c in candidate for c in "*?[") else [os.path.join(tree, candidate)]
        for path in paths:
            if not os.path.isfile(path):
                continue
            tried.append(os.path.relpath(path, tree))
            with open(path, encoding="utf-8") as f:
                text = f.read()
            spans, how = snippet_spans(text, mutant.old)
            if not spans:
                continue
            if mutant.occurrence:
                if mutant.occurrence > len(spans):
                    return None, f"{os.path.relpath(path, tree)} has the snippet only {len(spans)} times"
                return (path, text, spans[mutant.occurrence - 1], how), ""
            if len(spans) > 1:
                return None, f"the snippet is in {os.path.relpath(path, tree)} {len(spans)} times"
            return (path, text, spans[0], how), ""
    return None, "the snippet is in none of " + (", ".join(tried) if tried else "the files (none exists)")


class Journal:
    """The original content of the file under mutation, kept on disk until it is restored."""

    def __init__(self, build_dir):
        self.path = os.path.join(build_dir, "mutate-journal.json")

    def recover(self):
        if not os.path.exists(self.path):
            return
        with open(self.path, encoding="utf-8") as f:
            entry = json.load(f)
        write_text(entry["file"], entry["text"])
        print(f"mutate: restored {entry['file']} left mutated by an earlier run", file=sys.stderr)
        os.unlink(self.path)

    def keep(self, path, text):
        with open(self.path + ".new", "w", encoding="utf-8") as f:
            json.dump({"file": path, "text": text}, f)
        os.replace(self.path + ".new", self.path)

    def restore(self, path, text):
        write_text(path, text)  # a new time stamp: the next build compiles the original again
        if os.path.exists(self.path):
            os.unlink(self.path)


def write_text(path, text):
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


class Stopped(Exception):
    pass


def on_term(signum, frame):
    raise Stopped(f"signal {signum}")


def run(command, limit, log):
    """Runs a command in its own process group; the group is killed on a time-out or a stop.
    Returns (exit status or None on time-out, output)."""
    with open(log, "w+", encoding="utf-8", errors="replace") as out:
        child = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            status = child.wait(timeout=limit)
        except subprocess.TimeoutExpired:
            status = None
        except BaseException:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            raise
        if status is None:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
        out.seek(0)
        return status, out.read()


def build(args):
    status, output = run(["cmake", "--build", args.build, "-j", str(args.jobs)], args.build_timeout,
                         os.path.join(args.build, "mutate-build.log"))
    if status == 0:
        return True, ""
    if status is None:
        return False, f"the build took more than {args.build_timeout} s"
    errors = [l.strip() for l in output.splitlines() if "error" in l.lower() and "Werror" not in l]
    return False, errors[0][:300] if errors else output.strip().splitlines()[-1][:300]


def failed_tests(build_dir):
    path = os.path.join(build_dir, "Testing", "Temporary", "LastTestsFailed.log")
    if not os.path.exists(path):
        return []
    with open(path, encoding="utf-8") as f:
        return [line.strip().partition(":")[2] for line in f if line.strip()]


def test(args, stop_on_failure=True, only=None):
    """(passed, failed test names, seconds); a run cut short by the time limit counts as failed.
    `only`: run just these tests (by name) instead of the suite."""
    stale = os.path.join(args.build, "Testing", "Temporary", "LastTestsFailed.log")
    if os.path.exists(stale):
        os.unlink(stale)
    command = ["ctest", "--test-dir", args.build, "-j", str(args.jobs), "--timeout", str(args.test_timeout), "--no-tests=error"]
    if stop_on_failure:
        command.append("--stop-on-failure")
    if only:
        command += ["-R", "^(" + "|".join(re.escape(name) for name in only) + ")$"]
    elif args.tests:
        command += ["-R", args.tests]
    started = time.monotonic()
    status, output = run(command, args.suite_timeout, os.path.join(args.build, "mutate-test.log"))
    seconds = time.monotonic() - started
    if status is None:
        return False, failed_tests(args.build) or [f"(the suite took more than {args.suite_timeout} s)"], seconds
    names = failed_tests(args.build)
    if status != 0 and not names:
        names = [output.strip().splitlines()[-1] if output.strip() else f"(ctest exit status {status})"]
    return status == 0, names, seconds


def load_hints(path):
    """Mutant id -> the tests that caught it in an earlier run's results."""
    if not path:
        return {}
    with open(path, encoding="utf-8") as f:
        earlier = json.load(f)
    return {r["id"]: r["tests"] for r in earlier.get("mutants", []) if r.get("result") == "caught" and r.get("tests")}


def try_mutant(args, journal, mutant):
    found, reason = locate(args.tree, mutant)
    result = {"id": mutant.id, "what": mutant.what}
    if not found:
        result.update(result="not applicable", reason=reason)
        return result
    path, text, (begin, end), how = found
    result.update(file=os.path.relpath(path, args.tree), line=text.count("\n", 0, begin) + 1, matched=how)
    started = time.monotonic()
    journal.keep(path, text)
    try:
        write_text(path, text[:begin] + mutant.new + text[end:])
        built, error = build(args)
        hinted = load_hints(args.hints_file).get(mutant.id)  # read again: the earlier run may still be adding to it
        if not built:
            result.update(result="caught", by="build", detail=error)
        elif hinted and not (hint := test(args, only=hinted))[0]:
            result.update(result="caught", by="tests", tests=hint[1], hinted=True)
        else:
            passed, names, _ = test(args)
            if passed:
                result.update(result="survived")
            else:
                result.update(result="caught", by="tests", tests=names)
    finally:
        journal.restore(path, text)
    result["seconds"] = round(time.monotonic() - started, 1)
    return result


def head_commit(tree):
    done = subprocess.run(["git", "-C", tree, "rev-parse", "--short", "HEAD"], capture_output=True, text=True)
    return done.stdout.strip() if done.returncode == 0 else ""


def print_table(results, out=sys.stdout):
    width = max([len(r["id"]) for r in results] + [6])
    for r in results:
        if r["result"] == "caught":
            how = ", ".join(r["tests"][:3]) + (f" (+{len(r['tests']) - 3})" if len(r["tests"]) > 3 else "") if r["by"] == "tests" else "build: " + r["detail"]
        else:
            how = r.get("reason", "")
        print(f"{r['id']:<{width}}  {r['result']:<14}  {how}", file=out)
    counts = {k: sum(r["result"] == k for r in results) for k in ("caught", "survived", "not applicable")}
    print(f"{len(results)} mutants: {counts['caught']} caught, {counts['survived']} survived, "
          f"{counts['not applicable']} not applicable", file=out)


def save(args, report):
    if not args.out:
        return
    with open(args.out + ".new", "w", encoding="utf-8") as f:
        json.dump(report, f, indent=1)
        f.write("\n")
    os.replace(args.out + ".new", args.out)


def main():
    parser = argparse.ArgumentParser(description="Applies deliberate faults one at a time and tells which the tests catch.")
    parser.add_argument("--tree", default=os.path.dirname(os.path.dirname(HERE)), help="the source tree (default: this one)")
    parser.add_argument("--build", help="its configured build directory (default: TREE/build)")
    parser.add_argument("--table", default=os.path.join(HERE, "mutants.txt"), help="the table of mutants")
    parser.add_argument("--only", help="run only these mutants (ids, comma-separated)")
    parser.add_argument("--list", action="store_true", help="print the mutants and stop")
    parser.add_argument("--tests", help="run only the tests whose names match REGEX (ctest -R)")
    parser.add_argument("--out", help="write the results to FILE as JSON (rewritten after each mutant)")
    parser.add_argument("--resume", action="store_true", help="keep the results already in --out and run only the others")
    parser.add_argument("--skip-clean-check", action="store_true", help="do not first check that the unmutated tree passes")
    parser.add_argument("--hints", dest="hints_file", help="an earlier run's results (JSON): a mutant is first tried against the tests that caught "
                        "it there, and against the whole suite only when they pass")
    parser.add_argument("--jobs", type=int, default=2, help="parallel build and test jobs (default 2)")
    parser.add_argument("--test-timeout", type=int, default=300, help="seconds for one test without a limit of its own")
    parser.add_argument("--suite-timeout", type=int, default=1800, help="seconds for the whole suite of one mutant")
    parser.add_argument("--build-timeout", type=int, default=1800, help="seconds for one rebuild")
    args = parser.parse_args()
    args.tree = os.path.abspath(args.tree)
    args.build = os.path.abspath(args.build or os.path.join(args.tree, "build"))

    mutants = parse_table(args.table)
    load_hints(args.hints_file)  # a hints file that cannot be read stops the run here
    if args.only:
        wanted = args.only.split(",")
        unknown = sorted(set(wanted) - {m.id for m in mutants})
        if unknown:
            sys.exit(f"mutate: no mutant {', '.join(unknown)} in {args.table}")
        mutants = [m for m in mutants if m.id in wanted]
    if args.list:
        for m in mutants:  # with where each applies now, so a table can be checked without a build
            found, reason = locate(args.tree, m)
            where = f"{os.path.relpath(found[0], args.tree)}:{found[1].count(chr(10), 0, found[2][0]) + 1}" if found else "not applicable: " + reason
            print(f"{m.id}  {where}  {m.what}")
        return 0
    if not os.path.isfile(os.path.join(args.build, "CMakeCache.txt")):
        sys.exit(f"mutate: {args.build} is not a configured build directory")

    signal.signal(signal.SIGTERM, on_term)
    signal.signal(signal.SIGHUP, on_term)
    journal = Journal(args.build)
    journal.recover()
    report = {"tree": args.tree, "commit": head_commit(args.tree), "tests": args.tests or "", "mutants": []}
    if args.resume and args.out and os.path.exists(args.out):
        with open(args.out, encoding="utf-8") as f:
            earlier = json.load(f)
        report["mutants"] = [r for r in earlier.get("mutants", []) if r["result"] in ("caught", "survived")]
        report["clean_suite_seconds"] = earlier.get("clean_suite_seconds")
        done = {r["id"] for r in report["mutants"]}
        mutants = [m for m in mutants if m.id not in done]
    started = time.monotonic()
    status = 0
    try:
        if not args.skip_clean_check:
            built, error = build(args)
            if not built:
                sys.exit(f"mutate: the unmutated tree does not build: {error}")
            passed, names, seconds = test(args, stop_on_failure=False)
            if not passed:
                sys.exit(f"mutate: the unmutated tree fails {', '.join(names)}; a mutant could not be told apart")
            report["clean_suite_seconds"] = round(seconds, 1)
            print(f"mutate: the unmutated tree passes ({seconds:.0f} s)", file=sys.stderr)
        for number, mutant in enumerate(mutants, 1):
            print(f"mutate: [{number}/{len(mutants)}] {mutant.id}", file=sys.stderr, flush=True)
            result = try_mutant(args, journal, mutant)
            report["mutants"].append(result)
            print(f"mutate:   {result['result']}" + (f" by {result['by']}" if "by" in result else ""), file=sys.stderr, flush=True)
            report["seconds"] = round(time.monotonic() - started, 1)
            save(args, report)
    except (KeyboardInterrupt, Stopped) as stop:
        print(f"mutate: stopped ({stop or 'interrupt'}); the tree is restored", file=sys.stderr)
        report["stopped"] = True
        status = 130
    finally:
        report["seconds"] = round(time.monotonic() - started, 1)
        save(args, report)
    print_table(report["mutants"])
    print("mutate: rebuilding the unmutated tree", file=sys.stderr)
    built, error = build(args)
    if not built:
        print(f"mutate: the unmutated tree does not build again: {error}", file=sys.stderr)
        return 2
    return status


if __name__ == "__main__":
    sys.exit(main())
