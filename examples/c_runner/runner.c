/* A scenario runner written in C against the installed planecheck: reads each file step by step
 * through the loader's C interface, runs send: and dump: steps through the engine, checks expect:
 * steps, and prints every log line with its file and line.
 *
 *   cc runner.c $(pkg-config --cflags --libs planecheck) -o runner && ./runner scenario.yaml
 */
#include "planecheck/loader.h"
#include "planecheck/planecheck.h"
#include "planecheck/support.h"

#include <stdio.h>
#include <string.h>

struct where {
    const char *file;
    uint32_t step_line;
};

static void print_log(void *user, int level, const char *text, uint32_t line) {
    const struct where *at = user;
    if (level == 0) return; /* information lines (calls, handles) */
    fprintf(stderr, "%s:%u: %s", at->file, line ? line : at->step_line, text);
}

static void apply_config(const pc_scenario_config *config, PROCESS *context) {
    context->mode = config->mode;
    context->object_set = config->object_set;
    context->router_type = config->router_type;
    context->wait = config->wait;
    context->recorder_off = config->recorder_off;
    context->verbose = config->verbose;
    snprintf(context->node_name, sizeof context->node_name, "%s", config->node);
}

static uint64_t problems(const PROCESS *context) {
    return pc_session_count(context->session, PC_STAT_MISMATCH) + pc_session_count(context->session, PC_STAT_VALUE_ERROR);
}

/* expect: { mismatches: N, value_errors: N } accounts for what happened since the last expect:. */
static int expect_holds(const JSON_Value *value, const PROCESS *context, uint64_t *accounted) {
    int64_t want_mismatches = 0, want_value_errors = 0;
    const JSON_Object *o = json_value_get_object(value);
    pc_json_get_int64(json_object_get_value(o, "mismatches"), &want_mismatches);
    pc_json_get_int64(json_object_get_value(o, "value_errors"), &want_value_errors);
    uint64_t now = problems(context);
    int ok = now - *accounted == (uint64_t)(want_mismatches + want_value_errors);
    *accounted = now;
    return ok;
}

/* Returns the number of failures in the file; -1 when it cannot be read. */
static int run_file(const char *path) {
    pc_load_error error;
    pc_scenario *scenario = pc_scenario_open(path, &error);
    if (!scenario) {
        fprintf(stderr, "%s\n", error.text);
        return -1;
    }
    struct where at = {path, 0};
    PROCESS context;
    memset(&context, 0, sizeof context);
    apply_config(pc_scenario_get_config(scenario), &context);
    context.session = pc_session_new();
    pc_session_set_log(context.session, print_log, &at);

    int failures = 0, status;
    uint64_t accounted = 0;
    pc_step step;
    while ((status = pc_scenario_next(scenario, &step, &error)) == 1) {
        at.step_line = step.line;
        uint64_t before = problems(&context);
        const char *kind = step.kind ? step.kind : "";
        if (!strcmp(kind, "send") && !step.sdk) {
            json_send_object_client(step.value, &context);
        } else if (!strcmp(kind, "dump")) {
            json_dump_object_sdk(step.value, &context);
        } else if (!strcmp(kind, "expect")) {
            int ok = expect_holds(step.value, &context, &accounted);
            failures += !ok;
            printf("%s:%u: step %zu expect: %s\n", path, step.line, step.number, ok ? "ok" : "FAILED");
            continue;
        } else {
            /* SDK-side answers, injections and NPU results need the planecheck command line */
            printf("%s:%u: step %zu %s%s: not run by this runner\n", path, step.line, step.number, kind, step.sdk ? " with sdk:" : "");
            ++failures;
            continue;
        }
        uint64_t found = problems(&context) - before;
        printf("%s:%u: step %zu %s: %s\n", path, step.line, step.number, kind, found ? "FAILED" : "ok");
    }
    if (status < 0) {
        fprintf(stderr, "%s\n", error.text);
        failures = -1;
    } else if (problems(&context) != accounted) {
        failures += 1; /* mismatches that no expect: accounted for */
    }
    pc_session_free(context.session);
    pc_scenario_free(scenario);
    return failures;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s SCENARIO...\n", argv[0]);
        return 2;
    }
    int failed = 0, unreadable = 0;
    for (int i = 1; i < argc; ++i) {
        int failures = run_file(argv[i]);
        unreadable |= failures < 0;
        failed += failures != 0;
    }
    printf("c runner: %d of %d files failed\n", failed, argc - 1);
    return unreadable ? 2 : failed ? 1 : 0;
}
