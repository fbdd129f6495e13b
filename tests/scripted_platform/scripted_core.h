/* The generic part of the scripted platform that its per-type functions forward to. */
#ifndef SCRIPTED_CORE_H
#define SCRIPTED_CORE_H

#include "planecheck/dpa_api.h"
#include "planecheck/platform_api.h"

#include <stddef.h>
#include <stdint.h>

typedef ofa_client_obj_base_t sc_obj;

/* Arguments as they are recorded: objects by name, numbers in decimal, records as bytes. */
typedef struct sc_text {
    char text[1024];
    size_t length;
} sc_text;
void sc_begin(sc_text *call, const char *name);
void sc_arg_obj(sc_text *call, sc_obj obj);
void sc_arg_int(sc_text *call, int is_signed, uint64_t bits);
void sc_arg_bytes(sc_text *call, const void *data, size_t size);
void sc_arg_record(sc_text *call, int is_text, const void *data, size_t size); /* a text prints as "text" */
void sc_end(sc_text *call);                                   /* records `name(args)` */
void sc_end_int(sc_text *call, int is_signed, uint64_t bits); /* records `name(args) = N` */
void sc_end_obj(sc_text *call, sc_obj obj);
void sc_end_bytes(sc_text *call, const void *data, size_t size);
void sc_end_with(sc_text *call, const char *result);

sc_obj sc_construct(uint16_t type, const char *type_name, uint32_t elements);
void sc_destroy(sc_obj obj);
dpa_inst_hdr_t *sc_header(sc_obj obj);
/* Values by slot and element index (0 for top-level attributes). */
void sc_set(sc_obj obj, uint16_t slot, uint32_t index, const void *value, size_t width);
void sc_get(sc_obj obj, uint16_t slot, uint32_t index, void *out, size_t width);
uint8_t sc_is_set(sc_obj obj, uint16_t slot, uint32_t index);
/* Runs an operation: answers the scripted status for "TYPE OP", or 0. */
int32_t sc_run(sc_obj obj, uint8_t op);
int32_t sc_answer(const char *type_name, const char *op);
int32_t sc_batch_enqueue(ofa_batch_list_t list, sc_obj obj, uint8_t op);

/* The key lives in the slots before the attributes: slot 0xffff holds the whole key record. */
#define SC_KEY_SLOT 0xffff
/* Element attribute S lives in slot SC_ELEMENT_SLOT(S), one value per element index. */
#define SC_ELEMENT_SLOT(S) ((uint16_t)(0x8000u | (S)))

#endif
