/* The runner's C interface: results, the callback's events, checking without running, and a
 * recorder written into a descriptor the caller opened. */
#include "planecheck/runner.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "c_check.h"

struct tally {
    int events, json_lines, mismatch_findings, steps, run_ends;
    unsigned long long step_mismatches;
    char last_status[32];
};

static void count(void *user, const pc_runner_event *e) {
    struct tally *t = user;
    ++t->events;
    t->json_lines += strncmp(e->json, "{\"schema\":1,\"event\":\"", 21) == 0 && strstr(e->json, e->event) != NULL;
    if (!strcmp(e->event, "finding") && !strcmp(e->kind, "mismatch")) ++t->mismatch_findings;
    if (!strcmp(e->event, "step")) ++t->steps, t->step_mismatches += e->mismatches;
    if (!strcmp(e->event, "file_end")) snprintf(t->last_status, sizeof t->last_status, "%s", e->status);
    if (!strcmp(e->event, "run_end")) ++t->run_ends;
}

int main(int argc, char **argv) {
    const char *scenarios = argc > 1 ? argv[1] : ".", *work = argc > 2 ? argv[2] : ".";
    char mismatch[4096], traps[4096], recorder[4096];
    snprintf(mismatch, sizeof mismatch, "%s/mismatch.yaml", scenarios);
    snprintf(traps, sizeof traps, "%s/traps.yaml", scenarios);
    snprintf(recorder, sizeof recorder, "%s/runner_api.rec", work);

    pc_runner_options options;
    pc_runner_options_init(&options);
    CHECK(options.recorder_fd == -1 && options.recorder_path == NULL);
    options.quiet = 1;
    options.recorder_fd = open(recorder, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    struct tally t = {0};
    pc_runner *runner = pc_runner_new(&options, count, &t);
    CHECK(runner != NULL);
    if (!runner) return 1;

    pc_runner_file_result result;
    CHECK(pc_runner_run_file(runner, mismatch, &result) == 0);
    CHECK(!result.passed && !result.invalid && result.steps == 3 && result.mismatches == 2);
    CHECK(t.mismatch_findings == 2 && t.steps == 3 && t.step_mismatches == 2);
    CHECK(!strcmp(t.last_status, "failed"));

    CHECK(pc_runner_check_file(runner, traps, &result) == 0);
    CHECK(result.problems > 10 && result.mismatches == 0);

    CHECK(pc_runner_run_file(runner, "/nonexistent/planecheck.yaml", &result) == -1);
    CHECK(result.invalid && strstr(result.error, "/nonexistent/planecheck.yaml") == result.error);

    CHECK(pc_runner_finish(runner) == 2);
    pc_runner_free(runner);
    CHECK(t.run_ends == 1);
    CHECK(t.json_lines == t.events);

    struct stat recorded;
    CHECK(stat(recorder, &recorded) == 0 && recorded.st_size > 0); /* the runner wrote and closed it */
    if (failures) fprintf(stderr, "%d checks failed\n", failures);
    return failures ? 1 : 0;
}
