/* The services the scripted platform offers a runner: its answers stand in for fault injection,
 * its recorded calls are the call trace, and a reset before each file. Nothing else: no NPU
 * results, no SDK side, no instance per context, no configuration. */
#include "planecheck/platform_services.h"
#include "scripted_platform.h"

static void set_trace(pc_platform_trace_fn trace, void *user) { scripted_record_calls(trace, user); }

static const pc_platform_services services = {
    .size = sizeof(pc_platform_services),
    .reset = scripted_reset,
    .set_trace = set_trace,
    .arm_injection = scripted_answer,
    .name = "scripted",
};

const pc_platform_services *pc_platform_get_services(void) { return &services; }
