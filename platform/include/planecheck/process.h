/* The scenario context: a record owned by the runner and passed to every entry point. */
#ifndef PLANECHECK_PROCESS_H
#define PLANECHECK_PROCESS_H

#include <stdint.h>

#include "planecheck/platform_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define PC_NODE_NAME_MAX 64

/* Statistics kinds counted through scen_stats. */
enum pc_stat_kind {
    PC_STAT_VALUE_ERROR = 2, /* a scenario value that could not be converted */
    PC_STAT_MISMATCH = 8,    /* a status, NPU result or attribute that differs from the expected one */
    PC_STAT_KINDS = 16
};

struct pc_session; /* the runner-owned part: log sink, statistics, handle names, dump document */

struct PROCESS {
    ofa_client_obj_base_t received_obj; /* object received on the SDK side */
    int32_t verbose;                    /* level-0 information lines are written when nonzero */
    int32_t mode;                       /* 1: client calls; otherwise server calls */
    int32_t wait;                       /* 1: wait 100 ms after an update where the type asks for it */
    int32_t object_set;                 /* selects which of the two flag-gated type sets is active */
    int32_t recorder_off;               /* recorder dumps write nothing when nonzero */
    int32_t received_type;              /* type number of the object in received_obj */
    uint32_t router_type;
    char node_name[PC_NODE_NAME_MAX];
    int32_t dump_status;
    struct pc_session *session;
};

/* Runner services. */
void _proxy_log(PROCESS *context, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
void scen_stats(PROCESS *context, int kind);
const char *kerr_strerror(int32_t status);

#ifdef __cplusplus
}
#endif

#endif
