/* The JSON value model's reading interface. The names and type constants are parson's, so
 * the engine compiles unchanged against parson where a user has it. */
#ifndef PLANECHECK_JSON_H
#define PLANECHECK_JSON_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct json_value_t JSON_Value;
typedef struct json_object_t JSON_Object;
typedef struct json_array_t JSON_Array;

enum json_value_type {
    JSONError = -1,
    JSONNull = 1,
    JSONString = 2,
    JSONNumber = 3,
    JSONObject = 4,
    JSONArray = 5,
    JSONBoolean = 6
};
typedef int JSON_Value_Type;

JSON_Value_Type json_value_get_type(const JSON_Value *value);
JSON_Object *json_value_get_object(const JSON_Value *value);
JSON_Array *json_value_get_array(const JSON_Value *value);
const char *json_value_get_string(const JSON_Value *value);
double json_value_get_number(const JSON_Value *value);
int json_value_get_boolean(const JSON_Value *value);

JSON_Value *json_object_get_value(const JSON_Object *object, const char *name);
size_t json_object_get_count(const JSON_Object *object);
const char *json_object_get_name(const JSON_Object *object, size_t index);
JSON_Value *json_object_get_value_at(const JSON_Object *object, size_t index);
JSON_Value *json_object_get_wrapping_value(const JSON_Object *object);

size_t json_array_get_count(const JSON_Array *array);
JSON_Value *json_array_get_value(const JSON_Array *array, size_t index);

/* Extensions of this value model (not parson's): source position and exact integers. */
uint32_t pc_json_line(const JSON_Value *value);
uint32_t pc_json_column(const JSON_Value *value);
/* 1 when the number was written as an integer that fits; the value is stored in *out. */
int pc_json_get_int64(const JSON_Value *value, int64_t *out);
int pc_json_get_uint64(const JSON_Value *value, uint64_t *out);

#ifdef __cplusplus
}
#endif

#endif
