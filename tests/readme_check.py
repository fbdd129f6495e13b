#!/usr/bin/python3
"""The README's examples against what the commands really print, and its build snippets against an
installed planecheck.

usage: readme_check.py outputs PLANECHECK SOURCE_DIR BUILD_DIR SCRATCH_DIR
       readme_check.py snippets PREFIX SOURCE_DIR SCRATCH_DIR

`outputs` runs every ```console block of README.md: each `$ ` line is a command, the lines after it
are what it prints (standard output and error, as they come through one pipe). A line `...` stands
for any number of lines. Times, durations, run ids, host names and absolute paths are masked on both
sides. An HTML comment right before the block, `<!-- console: directory NAME` followed by shell
lines and `-->`, names the block's scratch directory (blocks naming the same one share it, in README
order) and prepares it; every directory starts with copies of examples/, tests/scenarios/ and
tests/scripted_platform/, a `build` link to the build tree, and `planecheck` on PATH.

`snippets` builds the CMake snippet and the pkg-config command lines of "Using the library from your
own runner" as written, with the C runner example as runner.c, and runs what they build.
"""
import concurrent.futures
import difflib
import functools
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys

sys.setrecursionlimit(20000)  # the alignment of a long output recurses once per line

FENCE = re.compile(r"^(\s*)(`{3,})([\w+-]*)\s*$")
ELLIPSIS = "..."
# What differs from run to run, or from machine to machine, is masked alike in the shown and the printed text.
MASKS = [
    (re.compile(r'"(time|run_id|host|catalogue)":"[^"]*"'), r'"\1":"…"'),
    (re.compile(r'"duration":[0-9.]+'), '"duration":…'),
    (re.compile(r'\btime="[0-9.]+"'), 'time="…"'),                  # JUnit
    (re.compile(r" in [0-9.]+s\b"), " in …s"),                      # pytest's session time
    (re.compile(r"\bafter [0-9.]+ s\b"), "after … s"),                # a timed-out file's time
    (re.compile(r"^(platform|plugins:) .*"), r"\1 …"),              # pytest's versions
    (re.compile(r"(?<![\w.~/-])/[\w.+@%-]+(?:/[\w.+@%-]*)*"), "/…"),  # absolute paths
]
# Variables that would change what a run does (a CI executor's shard, a fixed run id, another command).
UNSET = ("PLANECHECK_RUN_ID", "PLANECHECK_COMMAND", "TEST_SHARD_INDEX", "TEST_TOTAL_SHARDS", "TEST_SHARD_STATUS_FILE",
         "GTEST_SHARD_INDEX", "GTEST_TOTAL_SHARDS", "XML_OUTPUT_FILE", "PYTHONPATH", "LD_LIBRARY_PATH")


class Block:
    def __init__(self, line, lang, lines, comment):
        self.line, self.lang, self.lines, self.comment = line, lang, lines, comment


def comment_before(lines, index):
    """The text of the HTML comment that ends on the last non-blank line before `index`, or None."""
    end = index - 1
    while end >= 0 and not lines[end].strip():
        end -= 1
    if end < 0 or not lines[end].rstrip().endswith("-->"):
        return None
    start = end
    while start >= 0 and "<!--" not in lines[start]:
        start -= 1
    if start < 0:
        return None
    text = "\n".join(lines[start:end + 1]).strip()
    return text[text.index("<!--") + 4:text.rindex("-->")].strip()


def blocks_of(text):
    lines = text.split("\n")
    i = 0
    while i < len(lines):
        opening = FENCE.match(lines[i])
        if not opening:
            i += 1
            continue
        indent, ticks, lang = opening.groups()
        end = i + 1
        while end < len(lines) and lines[end].strip() != ticks:
            end += 1
        body = [line[len(indent):] if line.startswith(indent) else line.lstrip() for line in lines[i + 1:end]]
        yield Block(i + 1, lang, body, comment_before(lines, i))
        i = end + 1


def masked(line):
    for pattern, replacement in MASKS:
        line = pattern.sub(replacement, line)
    return line.rstrip()


def fits(shown, printed):
    """Whether the printed lines are the shown ones, each `...` standing for any run of lines."""
    @functools.cache
    def at(i, j):
        if i == len(shown):
            return j == len(printed)
        if shown[i] == ELLIPSIS:
            return any(at(i + 1, k) for k in range(j, len(printed) + 1))
        return j < len(printed) and shown[i] == printed[j] and at(i + 1, j + 1)
    return at(0, 0)


def with_ellipses_filled(shown, printed):
    """The shown lines with each `...` replaced by the printed lines it stands for in the closest alignment (the
    fewest lines without a partner), so that a diff shows only the lines that really differ; and for each line,
    the index of the shown line it comes from."""
    @functools.cache
    def best(i, j):
        """(lines without a partner, next move) from shown[i:] and printed[j:] on."""
        if i == len(shown):
            return len(printed) - j, "skip"
        moves = [(1 + best(i + 1, j)[0], "drop")]
        if shown[i] == ELLIPSIS:
            moves.append((best(i + 1, j)[0], "end"))
            if j < len(printed):
                moves.append((best(i, j + 1)[0], "take"))
        elif j < len(printed):
            moves.append((1 + best(i, j + 1)[0], "skip"))
            if shown[i] == printed[j]:
                moves.append((best(i + 1, j + 1)[0], "match"))
        return min(moves)

    filled, origins, i, j = [], [], 0, 0
    while i < len(shown):
        move = best(i, j)[1]
        if move == "take":  # the ellipsis stands for printed[j]
            filled.append(printed[j])
            origins.append(i)
            j += 1
        elif move == "skip":  # printed[j] has no shown partner
            j += 1
        else:  # a match, a shown line without partner, or the end of an ellipsis
            if move != "end":
                filled.append(shown[i])
                origins.append(i)
            i += 1
            j += move == "match"
    return filled, origins


def diff_at_readme_lines(block, shown, printed, printed_path):
    """A unified diff of the shown and the printed lines whose hunks count the shown side in README lines."""
    filled, origins = with_ellipses_filled(shown, printed)
    first_body_line = block.line + 1

    def readme_line(hunk):
        start = int(hunk.group(1))
        at = origins[start - 1] if 0 < start <= len(origins) else len(shown)
        return f"@@ -{first_body_line + at}"
    diff = difflib.unified_diff(filled, printed, f"README.md:{block.line} (shown)",
                                f"what the commands print (whole: {printed_path})", lineterm="", n=2)
    return "\n".join(re.sub(r"^@@ -(\d+)", readme_line, line) if line.startswith("@@") else line for line in diff)


def commands_of(lines):
    """The block's command lines (a trailing backslash continues one), in order."""
    commands, pending = [], None
    for line in lines:
        if pending is not None:
            pending += "\n" + line
        elif line.startswith("$ "):
            pending = line[2:]
        else:
            continue
        if not pending.endswith("\\"):
            commands.append(pending)
            pending = None
    return commands


def transcript_script(commands):
    """A bash script that prints each command as the README shows it, then runs it."""
    script = ["exec 2>&1"]
    for command in commands:
        shown = "\n".join("$ " + line if n == 0 else line for n, line in enumerate(command.split("\n")))
        script += [f"printf '%s\\n' {shlex.quote(shown)}", command]
    return "\n".join(script) + "\n"


def parse_directive(comment):
    """(directory name, set-up script) of a `console:` comment; (None, "") without one."""
    if comment is None or not comment.startswith("console:"):
        return None, ""
    first, _, setup = comment.partition("\n")
    words = first[len("console:"):].split()
    if words[:1] != ["directory"] or len(words) != 2:
        raise ValueError("a console comment starts `console: directory NAME`, then the set-up's shell lines")
    return words[1], setup


def problems_of_fences(blocks):
    """Blocks that would slip past the test: ones with no language, and commands shown outside console blocks."""
    for block in blocks:
        if block.lang == "":
            yield block.line, "a code block without a language: `console` if its output is shown (then it is tested), else `text`, `sh`, ..."
        elif block.lang != "console" and any(line.startswith("$ ") for line in block.lines):
            yield block.line, f"a {block.lang} block shows `$ ` commands: make it a console block, so that its output is tested"
        elif block.lang != "console" and block.comment and block.comment.startswith("console:"):
            yield block.line, "a console: comment before a block that is not a console block"


class Outputs:
    def __init__(self, planecheck, source, build, scratch):
        self.source, self.build = os.path.realpath(source), os.path.realpath(build)
        self.scratch = os.path.realpath(scratch)
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.bin = os.path.join(self.scratch, "bin")
        os.makedirs(self.bin)
        os.symlink(os.path.realpath(planecheck), os.path.join(self.bin, "planecheck"))
        self.directories = {}
        self.env = {k: v for k, v in os.environ.items() if k not in UNSET}
        self.env.update(PATH=f"{self.bin}:/usr/bin:/bin", COLUMNS="80", LC_ALL="C.UTF-8", TZ="UTC",
                        PYTHONDONTWRITEBYTECODE="1")

    def directory(self, name):
        if name in self.directories:
            return self.directories[name]
        path = os.path.join(self.scratch, name)
        shutil.copytree(os.path.join(self.source, "examples"), os.path.join(path, "examples"))
        shutil.copytree(os.path.join(self.source, "tests", "scenarios"), os.path.join(path, "tests", "scenarios"))
        shutil.copytree(os.path.join(self.source, "tests", "scripted_platform"), os.path.join(path, "tests", "scripted_platform"))
        os.symlink(self.build, os.path.join(path, "build"))
        self.directories[name] = path
        return path

    def set_up(self, block, setup, cwd):
        """(process group, problem) of the block's set-up. The group outlives the set-up, with any writer it left in
        the background (told to write elsewhere than the set-up's output), until the block has run."""
        process = subprocess.Popen(["bash", "-ec", setup], cwd=cwd, env=self.env, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True, text=True)
        try:
            out, _ = process.communicate(timeout=60)
        except subprocess.TimeoutExpired:
            end_group(process.pid)
            return None, f"README.md:{block.line}: the set-up did not end within 60 s"
        if process.returncode != 0:
            end_group(process.pid)
            return None, f"README.md:{block.line}: the set-up failed with exit status {process.returncode}:\n{out}"
        return process.pid, None

    def transcript(self, block, cwd):
        """What the block's commands print, each after its `$ ` line, as one text."""
        process = subprocess.Popen(["bash", "-c", transcript_script(commands_of(block.lines))], cwd=cwd, env=self.env,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   start_new_session=True, text=True)
        try:
            return process.communicate(timeout=120)[0]
        except subprocess.TimeoutExpired:
            end_group(process.pid)
            return process.communicate()[0] + "\n(readme_check: ended after 120 s)\n"

    def check(self, block):
        """None when the block's output is what its commands print, else the report of the difference."""
        name, setup = parse_directive(block.comment)
        cwd = self.directory(name or f"block-{block.line}")
        group = None
        if setup.strip():
            group, problem = self.set_up(block, setup, cwd)
            if problem:
                return problem
        try:
            out = self.transcript(block, cwd)
        finally:
            end_group(group)
        printed_path = os.path.join(self.scratch, f"README.md-{block.line}.printed")
        with open(printed_path, "w") as f:
            f.write(out)
        shown = [ELLIPSIS if line == ELLIPSIS else masked(line) for line in block.lines]
        printed = [masked(line) for line in out.split("\n")]
        if printed and printed[-1] == "":
            printed.pop()
        return None if fits(shown, printed) else diff_at_readme_lines(block, shown, printed, printed_path)


def end_group(group):
    if group is None:
        return
    try:
        os.killpg(group, signal.SIGKILL)
    except ProcessLookupError:
        pass


def check_outputs(planecheck, source, build, scratch):
    with open(os.path.join(source, "README.md")) as f:
        blocks = list(blocks_of(f.read()))
    failures = [f"README.md:{line}: {text}" for line, text in problems_of_fences(blocks)]
    consoles = [b for b in blocks if b.lang == "console"]
    if not consoles:
        failures.append("README.md has no console block: nothing was tested")
    # Blocks in different directories share nothing: each directory's blocks run in order, beside the others'.
    groups, reports = {}, {}
    for block in consoles:
        try:
            name = parse_directive(block.comment)[0] or f"block-{block.line}"
            groups.setdefault(name, []).append(block)
        except ValueError as e:
            reports[block.line] = f"README.md:{block.line}: {e}"
    outputs = Outputs(planecheck, source, build, scratch)

    def run_in_order(blocks):
        for block in blocks:
            reports[block.line] = outputs.check(block)
    with concurrent.futures.ThreadPoolExecutor(max_workers=3) as pool:
        list(pool.map(run_in_order, groups.values()))
    failures += [reports[b.line] for b in consoles if reports.get(b.line)]
    for failure in failures:
        print(failure, end="\n\n")
    print(f"readme_check: {len(consoles)} console blocks, {len(failures)} problems")
    return 1 if failures else 0


def section(text, heading):
    start = text.index("\n" + heading + "\n")
    end = text.find("\n## ", start + 1)
    return text[start:end if end >= 0 else len(text)]


def run_checked(command, cwd, env, what):
    out = subprocess.run(command, cwd=cwd, env=env, capture_output=True, text=True, timeout=300,
                         shell=isinstance(command, str))
    if out.returncode != 0:
        raise RuntimeError(f"{what}: exit status {out.returncode}\n{out.stdout}{out.stderr}")
    return out


def check_snippets(prefix, source, scratch):
    """Builds the section's CMake snippet and pkg-config lines as written against the install under PREFIX."""
    prefix, source = os.path.realpath(prefix), os.path.realpath(source)
    with open(os.path.join(source, "README.md")) as f:
        text = section(f.read(), "## Using the library from your own runner")
    blocks = list(blocks_of(text))
    cmake_blocks = [b for b in blocks if b.lang == "cmake"]
    # inline code may be wrapped over lines, which Markdown reads as spaces
    cc_lines = [" ".join(code.split()) for code in re.findall(r"`(cc runner\.c \$\(pkg-config[^`]*)`", text)]
    if len(cmake_blocks) != 1 or not cc_lines:
        print(f"readme_check: expected one cmake block and pkg-config lines, found {len(cmake_blocks)} and {len(cc_lines)}")
        return 1
    scratch = os.path.realpath(scratch)
    shutil.rmtree(scratch, ignore_errors=True)
    runner_c = os.path.join(source, "examples", "c_runner", "runner.c")
    scenario = os.path.join(source, "examples", "hello.yaml")
    env = {k: v for k, v in os.environ.items() if k not in UNSET}
    pc_dirs = {os.path.dirname(os.path.join(d, f)) for d, _, files in os.walk(prefix) for f in files if f == "planecheck.pc"}
    env["PKG_CONFIG_PATH"] = ":".join(sorted(pc_dirs))
    libdir = subprocess.run(["pkg-config", "--variable=libdir", "planecheck"], env=env, capture_output=True,
                            text=True).stdout.strip()
    try:
        project = os.path.join(scratch, "cmake")
        os.makedirs(os.path.join(project, "scenarios"))
        with open(os.path.join(project, "CMakeLists.txt"), "w") as f:
            f.write("\n".join(cmake_blocks[0].lines) + "\n")
        shutil.copy(runner_c, os.path.join(project, "runner.c"))
        for name in ("l3.yaml", "acl.yaml"):
            shutil.copy(scenario, os.path.join(project, "scenarios", name))
        build = os.path.join(project, "build")
        run_checked(["cmake", "-S", project, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}"], project, env,
                    "the cmake block: configuring")
        run_checked(["cmake", "--build", build], project, env, "the cmake block: building")
        tests = run_checked(["ctest", "--test-dir", build, "--output-on-failure"], project, env, "the cmake block: ctest")
        if "100% tests passed, 0 tests failed out of 2" not in tests.stdout:
            raise RuntimeError(f"the cmake block's scenario tests did not both run:\n{tests.stdout}")
        run_checked([os.path.join(build, "my_runner"), scenario], project, env, "the cmake block's my_runner on hello.yaml")
        for n, line in enumerate(cc_lines):
            where = os.path.join(scratch, f"pkg-config-{n}")
            os.makedirs(where)
            shutil.copy(runner_c, os.path.join(where, "runner.c"))
            run_checked(line, where, env, f"`{line}`")
            runs = dict(env)
            if "-rpath" not in line:  # the README says: run it with LD_LIBRARY_PATH=DIR/lib
                runs["LD_LIBRARY_PATH"] = libdir
            run_checked([os.path.join(where, "a.out"), scenario], where, runs, f"the program of `{line}` on hello.yaml")
    except (RuntimeError, subprocess.TimeoutExpired) as e:
        print(f"readme_check: {e}")
        return 1
    print(f"readme_check: the cmake block and {len(cc_lines)} pkg-config lines built against {prefix} and ran")
    return 0


if __name__ == "__main__":
    mode, args = sys.argv[1], sys.argv[2:]
    if mode == "outputs" and len(args) == 4:
        sys.exit(check_outputs(*args))
    if mode == "snippets" and len(args) == 3:
        sys.exit(check_snippets(*args))
    sys.exit(__doc__)
