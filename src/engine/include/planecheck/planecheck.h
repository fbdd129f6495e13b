/* planecheck's generic entry points. The per-type functions are in planecheck/exports.h. */
#ifndef PLANECHECK_PLANECHECK_H
#define PLANECHECK_PLANECHECK_H

#include "planecheck/exports.h"
#include "planecheck/process.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Runs one client step: a special step kind or the records of one object type. */
int json_send_object_client(JSON_Value *value, PROCESS *context);
/* Runs one "batch_crud" step. */
int json_batch_crud_send(JSON_Value *value, PROCESS *context);

#ifdef __cplusplus
}
#endif

#endif
