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

/* The SDK side. The runner puts the object the SDK side received in the context's received-object
 * slot first. Returns the status the SDK side answers with. */
int json_receive_object_sdk(JSON_Value *step, PROCESS *context);
/* Builds objects from records, checks their keys' round trip; returns the records' "rc". */
int json_dump_object_sdk(JSON_Value *step, PROCESS *context);
/* Writes the received object to the recorder and the JSON dump. */
int json_dump_object_received_sdk(PROCESS *context);

#ifdef __cplusplus
}
#endif

#endif
