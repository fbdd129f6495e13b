/* The JSON support library and the operation recorder: what the engine calls besides the
 * per-value-type converters declared in dpa_api.h. */
#ifndef PLANECHECK_SUPPORT_H
#define PLANECHECK_SUPPORT_H

#include <stddef.h>
#include <stdint.h>

#include "planecheck/process.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int (*pc_value_printer)(PROCESS *context, const void *value, const char *name);

/* Compares width bytes; on a difference logs both values through printer and counts a mismatch.
 * Returns 0 when equal, 1 when they differ. */
int json_cmp(PROCESS *context, const void *received, const void *expected, uint32_t width, const char *name,
             pc_value_printer printer);
/* True for the string "NOT_SET": the record expects the attribute to be absent. */
uint8_t json_expect_not_set(const JSON_Value *value);
/* Reports and counts an attribute that is set although the record expects it absent. */
int json_check_not_set(PROCESS *context, uint8_t is_set, const char *name, pc_value_printer printer);
/* Operation code (DPA_OP_*) of an operation record's "op"; 0 for an unknown op. */
uint32_t json_get_op_from_rec(const JSON_Object *record);
/* The integer a JSON value denotes: a number, a numeric string, a status or constant name. */
int64_t json_value_get_constant(const JSON_Value *value);
/* Keeps a returned object handle under a name for later refhdl conversions. */
void json_set_hdl(PROCESS *context, const char *name, uint64_t handle);

/* Reports a scenario value that cannot be used: one log line at the value's own line, counted as
 * a value error. */
void pc_report_value_error(PROCESS *context, const JSON_Value *value, const char *text);

/* Counts a finding of the library (a record made in C++, see planecheck/session.hpp) and hands it
 * with its composed line to the session; counted after the line when `count_after_line`. */
struct pc_finding;
void pc_report_finding(PROCESS *context, const struct pc_finding *finding, int count_after_line);

/* Tells the runner services which operation record is being worked on, so that its log lines
 * can name the record's line; null when none is. */
void pc_trace_record(PROCESS *context, const JSON_Value *record);

/* The runner-owned part of a context, for runners written in C: statistics, handle names, where
 * log lines go. Attach it with `context.session = pc_session_new();`. */
typedef void (*pc_log_fn)(void *user, int level, const char *text, uint32_t line);
struct pc_session *pc_session_new(void);
void pc_session_free(struct pc_session *session);
/* Log lines go to `log` (line: the scenario line of the record being worked on, 0 if unknown);
 * without one they go to standard error. */
void pc_session_set_log(struct pc_session *session, pc_log_fn log, void *user);
/* How many events of a kind (PC_STAT_MISMATCH, PC_STAT_VALUE_ERROR) were counted. */
uint64_t pc_session_count(const struct pc_session *session, int kind);
/* The scenario line of the operation record being worked on (0 when none): where a platform call
 * made now comes from. */
uint32_t pc_session_line(const struct pc_session *session);

/* handlers of the special client steps */
int json_ports_send(JSON_Value *value, PROCESS *context);
int json_vlan_send(JSON_Value *value, PROCESS *context);
int json_route_send(JSON_Value *value, PROCESS *context);
int json_bundle_send(JSON_Value *value, PROCESS *context);
int json_get_then_update_send(JSON_Value *value, PROCESS *context);

/* the operation recorder: appends formatted text to the recorder output */
void recorder_log(const char *format, ...) __attribute__((format(printf, 1, 2)));
/* appends text as it stands (no formatting) to the recorder output */
void recorder_write(const char *text, size_t length);
/* nonzero when recorder output goes anywhere: lets callers skip composing records nobody reads */
int recorder_is_enabled(void);

#ifdef __cplusplus
}
#endif

#endif
