/* A runner written in C: the public headers compile as C, and a step runs with its mismatches
 * counted and its log lines delivered. */
#include "planecheck/planecheck.h"
#include "planecheck/simplane.h"
#include "planecheck/support.h"

#include <stdio.h>
#include <string.h>

static int lines;
static char last[256];

static void collect(void *user, int level, const char *text, uint32_t line) {
    (void)user;
    (void)line;
    if (level == 1) {
        ++lines;
        snprintf(last, sizeof last, "%s", text);
    }
}

/* The library reads parsed JSON only; this runner builds its values with the library's loader. */
extern JSON_Value *pc_test_parse(const char *yaml);

int main(void) {
    PROCESS context;
    memset(&context, 0, sizeof context);
    context.mode = 1;
    context.session = pc_session_new();
    pc_session_set_log(context.session, collect, NULL);
    json_send_object_client(pc_test_parse("{test_if: [ {op: create, key_a: 1}, {op: create, key_a: 1} ]}"), &context);
    int ok = pc_session_count(context.session, PC_STAT_MISMATCH) == 1 && lines == 1 &&
             strcmp(last, "dpa_test_if_create: EEXIST, received 17 expected 0\n") == 0;
    pc_session_free(context.session);

    /* a second context with its own data plane: test_if 1 of the first one is not there */
    simplane_instance *plane = simplane_instance_new();
    simplane_instance *before = simplane_bind(plane);
    context.session = pc_session_new();
    pc_session_set_log(context.session, collect, NULL);
    json_send_object_client(pc_test_parse("{test_if: [ {op: create, key_a: 1} ]}"), &context);
    ok = ok && pc_session_count(context.session, PC_STAT_MISMATCH) == 0 && simplane_bind(before) == plane;
    pc_session_free(context.session);
    simplane_instance_free(plane);
    printf("%s\n", ok ? "c api: 1 passed, 0 failed" : "c api: 0 passed, 1 failed");
    return ok ? 0 : 1;
}
