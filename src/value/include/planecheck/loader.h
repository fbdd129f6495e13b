/* Reading scenario files from a runner written in C: whole documents into JSON values, and
 * scenarios step by step (header first, then one step at a time in flat memory, as the planecheck
 * command line reads them). */
#ifndef PLANECHECK_LOADER_H
#define PLANECHECK_LOADER_H

#include <stddef.h>
#include <stdint.h>

#include "planecheck/json.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Where and why reading failed. */
typedef struct pc_load_error {
    uint32_t line;   /* 1-based; 0 when unknown */
    uint32_t column; /* 1-based */
    char text[512];  /* "FILE:LINE:COL: message", cut to fit */
} pc_load_error;

/* A parsed YAML or JSON document: the values and the memory they live in. */
typedef struct pc_document pc_document;

/* Parse a file, or a text that messages call `name`. NULL on failure, with *error filled when
 * error is not NULL. An empty document gives a JSON null root. */
pc_document *pc_load_file(const char *path, pc_load_error *error);
pc_document *pc_load_string(const char *text, const char *name, pc_load_error *error);
JSON_Value *pc_document_root(const pc_document *document);
void pc_document_free(pc_document *document);

/* A scenario file being read. Its config is read when it is opened. */
typedef struct pc_scenario pc_scenario;

typedef struct pc_scenario_config {
    int32_t mode;         /* 1 client, 0 server */
    int32_t object_set;
    uint32_t router_type;
    uint32_t npus;
    const char *node;
    int32_t verbose;
    int32_t wait;
    int32_t recorder_off;
} pc_scenario_config;

typedef struct pc_step {
    const char *kind;  /* "send", "dump", "inject", "npu_result", "expect"... ; NULL when the step has none */
    JSON_Value *value; /* the value under the kind, such as { test_if: [ ... ] } for send */
    JSON_Value *sdk;   /* the SDK side's answer beside a send, or NULL */
    JSON_Value *step;  /* the whole step mapping */
    uint32_t line;     /* the step's line in the file */
    size_t number;     /* 1-based */
} pc_step;

/* Opens a scenario and reads everything before its steps. NULL on failure, with *error filled. */
pc_scenario *pc_scenario_open(const char *path, pc_load_error *error);
const char *pc_scenario_name(const pc_scenario *scenario); /* "" when the file has none */
const pc_scenario_config *pc_scenario_get_config(const pc_scenario *scenario);
/* Reads the next step: 1 when one was read, 0 at the end of the file, -1 on error (*error filled;
 * every later call gives the same error). The step's values stay valid until the next call: one
 * step is in memory at a time. */
int pc_scenario_next(pc_scenario *scenario, pc_step *step, pc_load_error *error);
void pc_scenario_free(pc_scenario *scenario);

#ifdef __cplusplus
}
#endif

#endif
