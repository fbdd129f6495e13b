/* planecheck's scenario runner as a C library: runs and checks scenario files as the planecheck
 * command does (every step kind, expect: accounting, the recorder, coverage, the event stream),
 * and hands each event to a callback, as a structure and as its line of JSON
 * (schema/events.schema.json).
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
    const char *recorder_path;   /* write the recorder here (NULL: none) */
    int recorder_fd;             /* or into this open descriptor, which the runner then owns (-1: none) */
    const char *coverage_path;   /* write the coverage report here when the runner finishes (NULL: none) */
    const char *events_path;     /* write the events as JSON Lines here ("-": standard output; NULL: none) */
} pc_runner_options;

/* Options as the command's defaults: nothing written, recorder_fd -1. */
void pc_runner_options_init(pc_runner_options *options);

/* One event. Members that do not apply to its kind are 0 or NULL. */
typedef struct pc_runner_event {
    const char *event;      /* run_start, file_start, finding, step, file_end, run_end */
    const char *file;
    uint32_t line;
    size_t step;
    const char *kind;       /* a step's kind (send, dump, ...) or a finding's (mismatch, value_error, check, log) */
    const char *label;      /* a step's label, such as "send test_if" */
    const char *status;     /* a step's or a file's status */
    const char *text;       /* a finding's text */
    uint64_t mismatches, value_errors;
    const char *json;       /* the whole event, one line of JSON without its newline */
} pc_runner_event;

typedef void (*pc_runner_event_fn)(void *user, const pc_runner_event *event);

/* A file's outcome. */
typedef struct pc_runner_file_result {
    int passed;
    int invalid;            /* the file could not be read or is not a valid scenario */
    size_t steps, failed_steps, not_run;
    uint64_t mismatches, value_errors, expected, problems, warnings;
    double duration_ms;
    char error[512];        /* FILE:LINE:COL: message, for an invalid file */
} pc_runner_file_result;

typedef struct pc_runner pc_runner;

/* NULL when the recorder or the events file cannot be opened (errno set). */
pc_runner *pc_runner_new(const pc_runner_options *options, pc_runner_event_fn on_event, void *user);
/* Run or check one file; the result is also told as events. Returns 1 passed, 0 failed, -1 invalid. */
int pc_runner_run_file(pc_runner *runner, const char *path, pc_runner_file_result *result);
int pc_runner_check_file(pc_runner *runner, const char *path, pc_runner_file_result *result);
/* Writes run_end and closes the recorder, the coverage report and the events; returns the exit
 * status the command would give (0 passed, 1 failed, 2 invalid or not written). */
int pc_runner_finish(pc_runner *runner);
void pc_runner_free(pc_runner *runner);

#ifdef __cplusplus
}
#endif

#endif
