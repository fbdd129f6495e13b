"""Bazel rules for planecheck: a test target that runs scenario files with `planecheck run`.

In WORKSPACE:

    local_repository(name = "planecheck_rules", path = "/usr/share/planecheck/bazel")
    load("@planecheck_rules//:planecheck.bzl", "planecheck_command")
    planecheck_command(name = "planecheck")

In a BUILD file:

    load("@planecheck_rules//:planecheck.bzl", "planecheck_test")
    planecheck_test(name = "scenarios", srcs = glob(["*.yaml"]), shard_count = 4)

The command is not built by Bazel: `planecheck_command` links an existing one into the workspace
(its `path`, else $PLANECHECK_COMMAND, else `planecheck` on PATH), so the same rule serves the
installed package and a build tree.
"""

def _planecheck_command_impl(rctx):
    path = rctx.attr.path or rctx.os.environ.get("PLANECHECK_COMMAND", "")
    if path:
        if not path.startswith("/"):
            fail("planecheck_command: %s is not an absolute path" % path)
        command = rctx.path(path)
        if not command.exists:
            fail("planecheck_command: %s does not exist" % path)
    else:
        command = rctx.which("planecheck")
        if command == None:
            fail("planecheck_command: no planecheck on PATH; install the planecheck package, " +
                 "or name the command with path = ... or PLANECHECK_COMMAND")
    rctx.symlink(command, "planecheck")
    rctx.file("WORKSPACE", "workspace(name = %r)\n" % rctx.name)
    rctx.file("BUILD", 'exports_files(["planecheck"], visibility = ["//visibility:public"])\n')

planecheck_command = repository_rule(
    implementation = _planecheck_command_impl,
    attrs = {
        "path": attr.string(doc = "The planecheck command's absolute path; default $PLANECHECK_COMMAND, else the one on PATH"),
    },
    environ = ["PLANECHECK_COMMAND", "PATH"],
    # The command lives outside the workspace: look it up again on every fetch.
    local = True,
    doc = "Links an existing planecheck command into the workspace as //:planecheck.",
)

def _shell_quote(word):
    return "'" + word.replace("'", "'\\''") + "'"

def _planecheck_test_impl(ctx):
    command = ctx.executable.planecheck
    words = [command.short_path, "run"] + [f.short_path for f in ctx.files.srcs]
    script = ctx.actions.declare_file(ctx.label.name + ".planecheck.sh")

    # Bazel runs a test in the workspace's runfiles, where the short paths lead; `planecheck run`
    # itself takes its shard from TEST_SHARD_INDEX/TEST_TOTAL_SHARDS, touches TEST_SHARD_STATUS_FILE
    # and writes JUnit to XML_OUTPUT_FILE. The rule's `args` come last, as "$@".
    ctx.actions.write(
        output = script,
        is_executable = True,
        content = "\n".join([
            "#!/bin/sh",
            "# worker processes' temporary files stay in the test's own scratch directory",
            'export TMPDIR="${TMPDIR:-${TEST_TMPDIR:-/tmp}}"',
            "exec " + " ".join([_shell_quote(w) for w in words]) + ' "$@"',
            "",
        ]),
    )
    runfiles = ctx.runfiles(files = [command] + ctx.files.srcs + ctx.files.data)
    runfiles = runfiles.merge(ctx.attr.planecheck[DefaultInfo].default_runfiles)
    for target in ctx.attr.data:
        runfiles = runfiles.merge(target[DefaultInfo].default_runfiles)
    return [DefaultInfo(executable = script, runfiles = runfiles)]

planecheck_test = rule(
    implementation = _planecheck_test_impl,
    test = True,
    attrs = {
        "srcs": attr.label_list(
            allow_files = [".yaml", ".yml", ".json", ".jsonl"],
            mandatory = True,
            doc = "Scenario files, run in this order; shard I of N takes every N-th from the I-th (from 0)",
        ),
        "data": attr.label_list(allow_files = True, doc = "Other files the run reads"),
        "planecheck": attr.label(
            default = Label("@planecheck//:planecheck"),
            executable = True,
            allow_single_file = True,
            cfg = "target",
            doc = "The planecheck command (a command built on another platform library, for one)",
        ),
    },
    doc = "Runs `planecheck run` on scenario files; shard_count splits them, args are added to the command.",
)
