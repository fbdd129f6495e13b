// The generic engine: one implementation of each per-type family, driven by a TypeDesc.
#pragma once

#include "descriptors.hpp"

namespace pc::engine {

int64_t send(const TypeDesc &type, JSON_Value *value, PROCESS *context);
int32_t send_retry(const TypeDesc &type, JSON_Object *record, PROCESS *context);
int set_attributes(const TypeDesc &type, JSON_Object *record, PROCESS *context, Obj obj);
int cmp_attributes(const TypeDesc &type, JSON_Object *record, PROCESS *context, Obj obj);
// The same with the record's index already built: one index serves a record's whole run.
class RecordMembers;
int set_attributes(const TypeDesc &type, const RecordMembers &members, PROCESS *context, Obj obj);
int cmp_attributes(const TypeDesc &type, JSON_Object *record, const RecordMembers &members, PROCESS *context, Obj obj);
int32_t recorder_dump(const TypeDesc &type, PROCESS *context, const char *section, const char *op, Obj obj,
                      int32_t status);
int32_t recorder_dump_replay(const TypeDesc &type, PROCESS *context, const char *section, const char *op,
                             int32_t status);

// The SDK side: check or fill a received object, write it out, build objects from records.
int receive(const TypeDesc &type, JSON_Value *records, PROCESS *context);
int receive_dump(const TypeDesc &type, PROCESS *context);
int object_dump(const TypeDesc &type, JSON_Value *value, PROCESS *context);

// Batches: queue one record's operation, and check a queued entry after the batch ran.
int batch_enqueue(const TypeDesc &type, ofa_batch_list_t list, JSON_Value *value, PROCESS *context);
int32_t validate_object(const TypeDesc &type, Obj entry, JSON_Value *value, PROCESS *context);

// The earliest catalogue type among a record's keys, and the value under that key; null if none.
const TypeDesc *first_type(const JSON_Object *record, JSON_Value *&value);

// The result check after an operation: NPU results, status, handle naming, recorder, retry.
void check_result(const TypeDesc &type, PROCESS *context, Obj obj, int32_t received, int32_t expected,
                  JSON_Object *record, JSON_Value *op);

// The type whose name is `name`, or null.
const TypeDesc *find_type(const char *name);

} // namespace pc::engine
