/* A complete scenario runner on planecheck/runner.h: runs (or, with --check, checks) each file
 * named on the command line with the options of planecheck run, and prints each file's verdict
 * from the events. Every step kind runs through the library, which prints the step and log lines.
 *
 *   cc runner.c $(pkg-config --cflags --libs planecheck) -o runner
 *   ./runner [-v] [-q] [--strict] [--trace] [--check] [--recorder FILE] [--events FILE]
 *            [--coverage FILE] scenario.yaml...
 */
#include "planecheck/runner.h"

#include <stdio.h>
#include <string.h>

static void on_event(void *user, const pc_runner_event *event) {
    FILE *out = user;
    if (strcmp(event->event, "file_end") == 0)
        fprintf(out, "%s: %s (%llu mismatches, %llu value errors)\n", event->file, event->status,
                (unsigned long long)event->mismatches, (unsigned long long)event->value_errors);
}

int main(int argc, char **argv) {
    pc_runner_options options;
    pc_runner_options_init(&options);
    int check = 0, first = 1;
    for (; first < argc && argv[first][0] == '-'; ++first) {
        const char *option = argv[first], *value = first + 1 < argc ? argv[first + 1] : NULL;
        if (!strcmp(option, "-v")) options.verbose = 1;
        else if (!strcmp(option, "-q")) options.quiet = 1;
        else if (!strcmp(option, "--strict")) options.strict = 1;
        else if (!strcmp(option, "--trace")) options.trace = 1;
        else if (!strcmp(option, "--check")) check = 1;
        else if (!strcmp(option, "--recorder") && value) options.recorder_path = argv[++first];
        else if (!strcmp(option, "--events") && value) options.events_path = argv[++first];
        else if (!strcmp(option, "--coverage") && value) options.coverage_path = argv[++first];
        else return fprintf(stderr, "runner: unknown option %s\n", option), 2;
    }
    if (first == argc) return fprintf(stderr, "usage: runner [options] scenario.yaml...\n"), 2;
    pc_runner *runner = pc_runner_new(&options, on_event, stderr);
    if (!runner) return perror("runner: cannot open the recorder or the events"), 2;
    for (int i = first; i < argc; ++i) {
        pc_runner_file_result result;
        if (check) pc_runner_check_file(runner, argv[i], &result);
        else pc_runner_run_file(runner, argv[i], &result);
        if (result.invalid) fprintf(stderr, "%s\n", result.error);
    }
    int status = pc_runner_finish(runner);
    pc_runner_free(runner);
    return status;
}
