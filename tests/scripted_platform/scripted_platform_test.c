/* Runs a scenario through the engine linked with the scripted C platform, and checks the exact
 * sequence of platform calls, each at the scenario line of its record, against an expected list.
 * usage: scripted_platform_test SCENARIO EXPECTED [ACTUAL_OUT] */
#include "planecheck/loader.h"
#include "planecheck/planecheck.h"
#include "planecheck/support.h"
#include "scripted_platform.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct calls {
    PROCESS *context;
    uint32_t step_line; /* for calls outside any record, as the command line's trace does */
    char *text;
    size_t length, capacity;
};

static void record(void *user, const char *call) {
    struct calls *calls = user;
    char line[1200];
    uint32_t at = pc_session_line(calls->context->session);
    int n = snprintf(line, sizeof line, "%u: %s\n", at ? at : calls->step_line, call);
    if (calls->length + (size_t)n + 1 > calls->capacity) {
        calls->capacity = (calls->capacity + (size_t)n + 1) * 2;
        calls->text = realloc(calls->text, calls->capacity);
        if (!calls->text) abort();
    }
    memcpy(calls->text + calls->length, line, (size_t)n + 1);
    calls->length += (size_t)n;
}

static void print_log(void *user, int level, const char *text, uint32_t line) {
    (void)user;
    if (level) fprintf(stderr, "line %u: %s", line, text);
}

static char *read_all(const char *path) {
    FILE *f = fopen(path, "rb");
    if (!f) return NULL;
    fseek(f, 0, SEEK_END);
    long size = ftell(f);
    fseek(f, 0, SEEK_SET);
    char *text = malloc((size_t)size + 1);
    if (!text || fread(text, 1, (size_t)size, f) != (size_t)size) abort();
    text[size] = '\0';
    fclose(f);
    return text;
}

/* inject: { op: "test_if create", status: ENOMEM, times: 1 } scripts the platform's answers */
static void script(const JSON_Value *step) {
    const JSON_Object *o = json_value_get_object(step);
    const JSON_Value *times = json_object_get_value(o, "times");
    scripted_answer(json_value_get_string(json_object_get_value(o, "op")),
                    (int32_t)json_value_get_constant(json_object_get_value(o, "status")),
                    times ? (uint32_t)json_value_get_constant(times) : 1);
}

/* Prints the first line where the two texts differ. */
static void show_difference(const char *expected, const char *actual) {
    int line = 1;
    while (*expected && *expected == *actual) {
        line += *expected == '\n';
        ++expected;
        ++actual;
    }
    while (line > 1 && expected[-1] != '\n') --expected, --actual;
    fprintf(stderr, "call %d differs:\n  expected: %.*s\n  actual:   %.*s\n", line, (int)strcspn(expected, "\n"), expected,
            (int)strcspn(actual, "\n"), actual);
}

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: scripted_platform_test SCENARIO EXPECTED [ACTUAL_OUT]\n");
        return 2;
    }
    pc_load_error error;
    pc_scenario *scenario = pc_scenario_open(argv[1], &error);
    if (!scenario) {
        fprintf(stderr, "%s\n", error.text);
        return 2;
    }
    PROCESS context;
    memset(&context, 0, sizeof context);
    context.mode = pc_scenario_get_config(scenario)->mode;
    context.router_type = pc_scenario_get_config(scenario)->router_type;
    context.session = pc_session_new();
    pc_session_set_log(context.session, print_log, NULL);
    struct calls calls = {&context, 0, NULL, 0, 0};
    scripted_record_calls(record, &calls);

    pc_step step;
    int status, failed = 0;
    while ((status = pc_scenario_next(scenario, &step, &error)) == 1) {
        calls.step_line = step.line;
        pc_trace_record(&context, NULL); /* no record is worked on before the step's first */
        if (!strcmp(step.kind, "send")) json_send_object_client(step.value, &context);
        else if (!strcmp(step.kind, "inject")) script(step.value);
    }
    if (status < 0) {
        fprintf(stderr, "%s\n", error.text);
        failed = 1;
    }
    uint64_t mismatches = pc_session_count(context.session, PC_STAT_MISMATCH);
    if (mismatches) {
        fprintf(stderr, "%llu mismatches against the scripted platform\n", (unsigned long long)mismatches);
        failed = 1;
    }
    if (argc > 3) {
        FILE *out = fopen(argv[3], "w");
        if (out) fputs(calls.text ? calls.text : "", out), fclose(out);
    }
    char *expected = read_all(argv[2]);
    if (!expected) {
        fprintf(stderr, "cannot read %s\n", argv[2]);
        return 2;
    }
    if (strcmp(expected, calls.text ? calls.text : "")) {
        show_difference(expected, calls.text ? calls.text : "");
        failed = 1;
    }
    printf("scripted platform: %zu bytes of calls, %s\n", calls.length, failed ? "FAILED" : "as expected");
    scripted_record_calls(NULL, NULL);
    pc_session_free(context.session);
    pc_scenario_free(scenario);
    free(calls.text);
    free(expected);
    return failed;
}
