/* A complete scenario runner on planecheck/runner.h: runs (or, with --check, checks) the files and
 * directories named on the command line with the options of planecheck run, and prints each
 * file's verdict from the events. Every step kind runs through the library, which prints the step
 * and log lines; the files run in a worker process unless --in-process is given.
 *
 *   cc runner.c $(pkg-config --cflags --libs planecheck) -o runner
 *   ./runner [-v] [-q] [--strict] [--trace] [--check] [-j N | --in-process] [--shard I/N]
 *            [--recorder FILE] [--events FILE] [--coverage FILE] [--junit FILE] [--tap FILE]
 *            [--html FILE] scenario.yaml...
 */
#include "planecheck/runner.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void on_event(void *user, const pc_runner_event *event) {
    FILE *out = user;
    if (strcmp(event->event, "file_end") != 0) return;
    if (strcmp(event->status, "not_run") == 0)
        fprintf(out, "%s: not_run (%s)\n", event->file, event->text);
    else
        fprintf(out, "%s: %s (%llu mismatches, %llu value errors)\n", event->file, event->status,
                (unsigned long long)event->mismatches, (unsigned long long)event->value_errors);
}

static const char *const outputs[] = {"recorder", "events", "coverage", "junit", "tap", "html"};

/* "--junit" -> the index of "junit" in outputs, or -1. */
static int output_index(const char *option) {
    for (size_t i = 0; i < sizeof outputs / sizeof *outputs; ++i)
        if (!strncmp(option, "--", 2) && !strcmp(option + 2, outputs[i])) return (int)i;
    return -1;
}

int main(int argc, char **argv) {
    pc_runner_options options;
    pc_runner_options_init(&options);
    const char *output_paths[sizeof outputs / sizeof *outputs] = {0};
    int first = 1;
    for (; first < argc && argv[first][0] == '-'; ++first) {
        const char *option = argv[first], *value = first + 1 < argc ? argv[first + 1] : NULL;
        int output = output_index(option);
        if (!strcmp(option, "-v")) options.verbose = 1;
        else if (!strcmp(option, "-q")) options.quiet = 1;
        else if (!strcmp(option, "--strict")) options.strict = 1;
        else if (!strcmp(option, "--trace")) options.trace = 1;
        else if (!strcmp(option, "--check")) options.check_only = 1;
        else if (!strcmp(option, "--in-process")) options.jobs = 0;
        else if (!strcmp(option, "-j") && value) options.jobs = (unsigned)atoi(argv[++first]);
        else if (!strcmp(option, "--shard") && value) options.shard = argv[++first];
        else if (output >= 0 && value) output_paths[output] = argv[++first];
        else return fprintf(stderr, "runner: unknown option %s\n", option), 2;
    }
    if (first == argc) return fprintf(stderr, "usage: runner [options] scenario.yaml...\n"), 2;
    pc_runner *runner = pc_runner_new(&options, on_event, stderr);
    if (!runner) return fprintf(stderr, "runner: out of memory\n"), 2;
    for (size_t i = 0; i < sizeof outputs / sizeof *outputs; ++i)
        if (output_paths[i]) pc_runner_output(runner, outputs[i], output_paths[i]);
    for (int i = first; i < argc; ++i) pc_runner_add(runner, argv[i]);
    int status = pc_runner_run(runner);
    pc_runner_free(runner);
    return status;
}
