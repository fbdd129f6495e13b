/* A runner written in C: the public headers compile as C; documents and scenarios are read
 * through the loader's C interface; a step runs with its mismatches counted and its log lines
 * delivered. */
#include "planecheck/loader.h"
#include "planecheck/planecheck.h"
#include "planecheck/support.h"

#include <stdio.h>
#include <string.h>

#include "c_check.h"

static int lines;
static char last[256];
static uint32_t logged_line, session_line;

static void collect(void *user, int level, const char *text, uint32_t line) {
    if (level == 1) {
        ++lines;
        snprintf(last, sizeof last, "%s", text);
        logged_line = line;
        session_line = pc_session_line(user);
    }
}

static void parse_errors_name_line_and_column(void) {
    pc_load_error error;
    memset(&error, 0, sizeof error);
    CHECK(pc_load_string("a: 1\nb: [1, 2\n", "inline.yaml", &error) == NULL);
    CHECK(error.line == 3 && error.column == 1);
    CHECK(strncmp(error.text, "inline.yaml:3:1: ", 17) == 0);
    CHECK(pc_load_file("/nonexistent/planecheck.yaml", &error) == NULL);
    CHECK(strstr(error.text, "/nonexistent/planecheck.yaml") != NULL);
    /* without an error record a failure is still only NULL */
    CHECK(pc_load_string("[", "x", NULL) == NULL);
}

static void scenarios_are_read_config_first_then_step_by_step(const char *dir) {
    char path[512];
    pc_load_error error;
    pc_step step;
    snprintf(path, sizeof path, "%s/sdk_server.yaml", dir);
    pc_scenario *scenario = pc_scenario_open(path, &error);
    CHECK(scenario != NULL);
    if (!scenario) return;
    CHECK(strcmp(pc_scenario_name(scenario), "sdk answers need client calls") == 0);
    CHECK(pc_scenario_get_config(scenario)->mode == 0 && pc_scenario_get_config(scenario)->npus == 4);
    CHECK(strcmp(pc_scenario_get_config(scenario)->node, "node0") == 0);
    CHECK(pc_scenario_next(scenario, &step, &error) == 1);
    CHECK(step.kind && strcmp(step.kind, "send") == 0 && step.sdk != NULL && step.line == 4 && step.number == 1);
    CHECK(json_object_get_value(json_value_get_object(step.value), "test_if") != NULL);
    CHECK(pc_scenario_next(scenario, &step, &error) == 0);
    CHECK(pc_scenario_next(scenario, &step, &error) == 0); /* the end stays the end */
    pc_scenario_free(scenario);

    /* a config after the steps is refused where it stands, after the steps before it were read */
    snprintf(path, sizeof path, "%s/late_config.yaml", dir);
    scenario = pc_scenario_open(path, &error);
    CHECK(scenario != NULL);
    if (!scenario) return;
    CHECK(pc_scenario_next(scenario, &step, &error) == 1 && strcmp(step.kind, "send") == 0);
    CHECK(pc_scenario_next(scenario, &step, &error) == 1 && strcmp(step.kind, "expect") == 0 && step.sdk == NULL);
    CHECK(pc_scenario_next(scenario, &step, &error) == -1);
    CHECK(error.line == 6 && strstr(error.text, "config: must come before steps:") != NULL);
    memset(&error, 0, sizeof error); /* the reader stays at its first error */
    CHECK(pc_scenario_next(scenario, &step, &error) == -1 && error.line == 6);
    pc_scenario_free(scenario);
}

static void a_step_runs_with_its_mismatch_counted_and_logged(void) {
    PROCESS context;
    memset(&context, 0, sizeof context);
    context.mode = 1;
    context.session = pc_session_new();
    pc_session_set_log(context.session, collect, context.session);
    pc_document *step = pc_load_string("{test_if: [ {op: create, key_a: 1},\n  {op: create, key_a: 1} ]}", "c_api_test", NULL);
    CHECK(step != NULL);
    if (step) json_send_object_client(pc_document_root(step), &context);
    CHECK(pc_session_count(context.session, PC_STAT_MISMATCH) == 1 && lines == 1);
    CHECK(logged_line == 2 && session_line == 2); /* the second record's line, while it runs */
    CHECK(strcmp(last, "dpa_test_if_create: EEXIST, received 17 expected 0\n") == 0);
    pc_document_free(step);
    pc_session_free(context.session);
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: c_api_test SCENARIO_DIR\n");
        return 2;
    }
    parse_errors_name_line_and_column();
    scenarios_are_read_config_first_then_step_by_step(argv[1]);
    a_step_runs_with_its_mismatch_counted_and_logged();
    printf("c api: %s\n", failures ? "FAILED" : "passed");
    return failures ? 1 : 0;
}
