/* The runner's C interface: a run of several files in a worker (a file the library ends does not
 * end the host), outputs by name, several runs in one process, checking without running, and a
 * run in the calling process that the library ends: the file is reported, the rest as not run. */
#include "planecheck/runner.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "c_check.h"

struct tally {
    int events, json_lines, mismatch_findings, run_ends, files, attempts_told;
    char statuses[256]; /* each file's status, in order, space-separated */
    char run_status[32];
};

static void count(void *user, const pc_runner_event *e) {
    struct tally *t = user;
    ++t->events;
    t->json_lines += strncmp(e->json, "{\"schema\":1,\"event\":\"", 21) == 0 && strstr(e->json, e->event) != NULL;
    if (!strcmp(e->event, "finding") && !strcmp(e->kind, "mismatch")) ++t->mismatch_findings;
    if (!strcmp(e->event, "file_end")) {
        ++t->files;
        t->attempts_told += strstr(e->json, "\"attempts\":2,") != NULL;
        strncat(t->statuses, e->status, sizeof t->statuses - strlen(t->statuses) - 2);
        strcat(t->statuses, " ");
    }
    if (!strcmp(e->event, "run_end")) ++t->run_ends, snprintf(t->run_status, sizeof t->run_status, "%s", e->status);
}

static char *path_in(const char *dir, const char *name) {
    static char paths[8][4096];
    static int next;
    char *p = paths[next++ % 8];
    snprintf(p, 4096, "%s/%s", dir, name);
    return p;
}

static long file_size(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 ? (long)st.st_size : -1;
}

/* The lines of a file that hold `needle`, and `also` when it is not NULL. */
static int lines_with(const char *path, const char *needle, const char *also) {
    FILE *f = fopen(path, "r");
    if (!f) return -1;
    int n = 0;
    char line[8192];
    while (fgets(line, sizeof line, f)) n += strstr(line, needle) != NULL && (!also || strstr(line, also) != NULL);
    fclose(f);
    return n;
}

static int count_in_file(const char *path, const char *needle) { return lines_with(path, needle, NULL); }

/* Three files in one worker: failed, ended by the library, passed; the outputs named. */
static void runs_every_file_in_a_worker(const char *scenarios, const char *work) {
    pc_runner_options options;
    pc_runner_options_init(&options);
    CHECK(options.jobs == 1 && options.handlers == 0);
    options.quiet = 1;
    struct tally t = {0};
    pc_runner *runner = pc_runner_new(&options, count, &t);
    CHECK(pc_runner_output(runner, "junit", path_in(work, "api.xml")) == 0);
    CHECK(pc_runner_output(runner, "recorder", path_in(work, "api.rec")) == 0);
    CHECK(pc_runner_output(runner, "jnuit", path_in(work, "x")) == -1);
    pc_runner_add(runner, path_in(scenarios, "mismatch.yaml"));
    pc_runner_add(runner, path_in(scenarios, "unknown_table.yaml"));
    pc_runner_add(runner, path_in(scenarios, "clean.yaml"));
    CHECK(pc_runner_run(runner) == 1);
    CHECK(!strcmp(t.statuses, "failed ended passed "));
    CHECK(t.mismatch_findings == 2 && t.run_ends == 1 && !strcmp(t.run_status, "failed"));
    CHECK(t.json_lines == t.events);
    CHECK(count_in_file(path_in(work, "api.xml"), "<testcase ") == 3);
    CHECK(file_size(path_in(work, "api.rec")) > 0);

    /* a second run of the same runner: only the files added since */
    memset(&t, 0, sizeof t);
    pc_runner_add(runner, path_in(scenarios, "clean.yaml"));
    CHECK(pc_runner_run(runner) == 0);
    CHECK(!strcmp(t.statuses, "passed ") && t.run_ends == 1);
    pc_runner_free(runner);
}

/* The limits of a run against a device: a failed file runs again, --max-fail stops the rest. */
static void retries_and_stops_at_the_limits(const char *scenarios) {
    pc_runner_options options;
    pc_runner_options_init(&options);
    CHECK(options.timeout == 0 && options.retries == 0 && options.max_fail == 0);
    options.quiet = 1;
    options.retries = 1;
    options.max_fail = 1;
    options.timeout = 60;
    struct tally t = {0};
    pc_runner *runner = pc_runner_new(&options, count, &t);
    pc_runner_add(runner, path_in(scenarios, "clean.yaml"));
    pc_runner_add(runner, path_in(scenarios, "mismatch.yaml"));
    pc_runner_add(runner, path_in(scenarios, "clean.yaml"));
    CHECK(pc_runner_run(runner) == 1);
    CHECK(!strcmp(t.statuses, "passed failed not_run "));
    CHECK(t.mismatch_findings == 2); /* the last attempt's: a failed attempt is told in its file_end alone */
    CHECK(t.attempts_told == 1);
    pc_runner_free(runner);
}

static void checks_without_running(const char *scenarios) {
    pc_runner_options options;
    pc_runner_options_init(&options);
    options.check_only = 1;
    options.jobs = 0;
    struct tally t = {0};
    pc_runner *runner = pc_runner_new(&options, count, &t);
    pc_runner_add(runner, path_in(scenarios, "traps.yaml"));
    pc_runner_add(runner, "/nonexistent/planecheck.yaml");
    CHECK(pc_runner_run(runner) == 2);
    CHECK(t.files == 2 && !strncmp(t.statuses, "failed invalid", 14));
    pc_runner_free(runner);
}

/* In the calling process, the library's exit ends the host: a child plays the host. */
static void an_ending_in_process_reports_the_rest(const char *scenarios, const char *work) {
    fflush(NULL);
    pid_t child = fork();
    if (child == 0) {
        pc_runner_options options;
        pc_runner_options_init(&options);
        options.jobs = 0;
        options.quiet = 1;
        pc_runner *runner = pc_runner_new(&options, NULL, NULL);
        pc_runner_output(runner, "events", path_in(work, "in_process.events"));
        pc_runner_output(runner, "junit", path_in(work, "in_process.xml"));
        pc_runner_add(runner, path_in(scenarios, "mismatch.yaml"));
        pc_runner_add(runner, path_in(scenarios, "unknown_table.yaml"));
        pc_runner_add(runner, path_in(scenarios, "clean.yaml"));
        pc_runner_run(runner);
        _exit(99); /* not reached: the library ends the process in the second file */
    }
    int status = 0;
    waitpid(child, &status, 0);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 1);
    const char *events = path_in(work, "in_process.events");
    CHECK(count_in_file(events, "\"event\":\"file_end\"") == 3);
    CHECK(lines_with(events, "\"event\":\"file_end\"", "\"status\":\"ended\"") == 1);
    CHECK(lines_with(events, "\"event\":\"file_end\"", "\"status\":\"not_run\",") == 1);
    CHECK(lines_with(events, "\"event\":\"run_start\"", "\"platform\":\"simplane\"") == 1);
    CHECK(count_in_file(events, "not run: the run ended in ") == 1);
    CHECK(count_in_file(events, "\"event\":\"run_end\"") == 1);
    CHECK(count_in_file(path_in(work, "in_process.xml"), "<skipped message=\"not run: the run ended in ") == 1);
}

int main(int argc, char **argv) {
    const char *scenarios = argc > 1 ? argv[1] : ".", *work = argc > 2 ? argv[2] : ".";
    runs_every_file_in_a_worker(scenarios, work);
    retries_and_stops_at_the_limits(scenarios);
    checks_without_running(scenarios);
    an_ending_in_process_reports_the_rest(scenarios, work);
    if (failures) fprintf(stderr, "%d checks failed\n", failures);
    return failures ? 1 : 0;
}
