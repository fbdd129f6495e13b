/* planecheck's scenario runner as a C library: everything `planecheck run` does, for a C program.
 * A runner is given files (or directories of them) and outputs by name, then runs them: in
 * worker processes (the default: a file the library ends is reported and its worker replaced,
 * and the host process never ends with it) or in the calling process. Each event of the run is
 * handed to a callback, as a structure and as its line of JSON (schema/events.schema.json).
 *
 *   pc_runner *r = pc_runner_new(&options, on_event, user);
 *   pc_runner_output(r, "junit", "report.xml");
 *   pc_runner_add(r, "scenarios/");
 *   int status = pc_runner_run(r);       (0 passed, 1 failed or all skipped, 2 invalid or not written)
 *   pc_runner_free(r);
 *
 * Several runners, and several runs of one runner, may follow each other in one process. No
 * process-wide handler is installed unless `handlers` asks for it; a run in the calling process
 * registers an exit hook, so that a file the library ends (an unknown table) is reported, and the
 * files after it as not run, before the process ends with the library's exit status.
 *
 * The library is self-contained: link it alone (-lplanecheck_runner). */
#ifndef PLANECHECK_RUNNER_H
#define PLANECHECK_RUNNER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct pc_runner_options {
    int verbose;                 /* information lines too */
    int quiet;                   /* step lines only for steps that did not pass */
    int strict;                  /* refuse a file the check fails; a step that ran nothing fails */
    int trace;                   /* every platform call, at its record's line */
    int check_only;              /* read and validate the files, run nothing */
    unsigned jobs;               /* run the files in this many worker processes (default 1); 0: in this process */
    const char *shard;           /* "I/N": only shard I of N of the files (NULL: all of them) */
    int ci_environment;          /* let a CI executor's variables choose the shard and the JUnit file (default 0) */
    int handlers;                /* install the abort and stop-signal handlers in this process (default 0) */
    int allow_skipped;           /* a run in which every file was skipped (ran nothing) passes (default 0) */
    double timeout;              /* seconds a file may run before it is ended as timed_out (0: no limit); a
                                    scenario's config: timeout wins; the files run in a worker even with jobs 0 */
    unsigned retries;            /* a failed, ended or timed-out file runs again, on a fresh worker, up to this
                                    often; one that then passes is flaky, and passes (default 0) */
    size_t max_fail;             /* once this many files failed, no other file starts: they are not_run (0: no limit) */
} pc_runner_options;

/* Options as the command's defaults, in one worker process. */
void pc_runner_options_init(pc_runner_options *options);

/* One event. Members that do not apply to its kind are 0 or NULL. */
typedef struct pc_runner_event {
    const char *event;      /* run_start, file_start, finding, step, file_end, run_end */
    const char *file;
    uint32_t line;
    size_t step;
    const char *kind;       /* a step's kind (send, dump, ...) or a finding's (mismatch, value_error, check, log) */
    const char *label;      /* a step's label, such as "send test_if" */
    const char *status;     /* a step's or a file's status: passed, failed, invalid, ended, not_run;
                               a file's also skipped (it passed, but no step in it ran anything),
                               timed_out (it outran the time limit) or flaky (it passed on a retry) */
    const char *text;       /* a finding's text; a file's error, or why it did not run or was skipped */
    uint64_t mismatches, value_errors;
    size_t steps;           /* a file's or the run's steps */
    const char *json;       /* the whole event, one line of JSON without its newline */
} pc_runner_event;

typedef void (*pc_runner_event_fn)(void *user, const pc_runner_event *event);

typedef struct pc_runner pc_runner;

/* NULL only when memory runs out. */
pc_runner *pc_runner_new(const pc_runner_options *options, pc_runner_event_fn on_event, void *user);
/* Writes output `name` of each run to `path`: "recorder", "junit", "events", "html", "coverage"
 * (a file), or "tap" ("-" for standard output, or a file). 0, or -1 for an unknown name. */
int pc_runner_output(pc_runner *runner, const char *name, const char *path);
/* Adds a scenario file, or a directory of them (its scenario files, sorted, recursively). */
int pc_runner_add(pc_runner *runner, const char *path);
/* Runs the files added since the last run; the exit status `planecheck run` would give: 0 passed,
 * 1 failed (or every file skipped, unless allowed), 2 invalid, not written or refused (the reason is
 * printed on standard error). */
int pc_runner_run(pc_runner *runner);
void pc_runner_free(pc_runner *runner);

#ifdef __cplusplus
}
#endif

#endif
