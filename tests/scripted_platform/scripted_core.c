/* The scripted platform's generic part: objects that keep what is set on them, scripted
 * answers, batch lists, and the call recorder. */
#include "scripted_core.h"
#include "scripted_platform.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* ---- the call recorder ------------------------------------------------------------------- */

static scripted_recorder recorder;
static void *recorder_user;
static unsigned next_object = 1;

void scripted_record_calls(scripted_recorder r, void *user) {
    recorder = r;
    recorder_user = user;
}

/* Appends to the call's text; what does not fit is cut off. */
__attribute__((format(printf, 2, 3))) static void add(sc_text *call, const char *format, ...) {
    size_t room = sizeof call->text - call->length;
    va_list args;
    va_start(args, format);
    int n = vsnprintf(call->text + call->length, room, format, args);
    va_end(args);
    if (n > 0) call->length += (size_t)n < room ? (size_t)n : room - 1;
}

static void separate(sc_text *call) {
    if (call->text[call->length - 1] != '(') add(call, ", ");
}

void sc_begin(sc_text *call, const char *name) {
    call->length = 0;
    add(call, "%s(", name);
}

/* ---- objects ----------------------------------------------------------------------------- */

struct sc_value {
    struct sc_value *next;
    uint16_t slot;
    uint32_t index;
    size_t width;
    unsigned char bytes[];
};

/* The handle record the engine reads (instance count, current instance), around one instance
 * that starts with the common header. */
struct sc_object {
    struct ofa_client_obj_base_s base;
    dpa_inst_hdr_t header;
    const char *type_name;
    unsigned name;
    struct sc_value *values;
};

static struct sc_object *object_of(sc_obj obj) { return (struct sc_object *)obj; }

static void object_text(sc_text *call, sc_obj obj) {
    if (obj) add(call, "obj%u", object_of(obj)->name);
    else add(call, "null");
}

sc_obj sc_construct(uint16_t type, const char *type_name, uint32_t elements) {
    struct sc_object *o = calloc(1, sizeof *o);
    if (!o) abort();
    o->base.inst_count = 1;
    o->base.inst_size = sizeof o->header;
    o->base.data = &o->header;
    o->header.type = type;
    o->header.elem_count = elements;
    o->header.inst_size = sizeof o->header;
    o->type_name = type_name;
    o->name = next_object++;
    return &o->base;
}

static void free_values(struct sc_value *v);

void sc_destroy(sc_obj obj) {
    if (!obj) return;
    free_values(object_of(obj)->values);
    free(object_of(obj));
}

dpa_inst_hdr_t *sc_header(sc_obj obj) { return &object_of(obj)->header; }

static struct sc_value *find_in(struct sc_value *v, uint16_t slot, uint32_t index) {
    for (; v; v = v->next)
        if (v->slot == slot && v->index == index) return v;
    return NULL;
}

static struct sc_value *find(sc_obj obj, uint16_t slot, uint32_t index) { return find_in(object_of(obj)->values, slot, index); }

void sc_set(sc_obj obj, uint16_t slot, uint32_t index, const void *value, size_t width) {
    struct sc_value *v = find(obj, slot, index);
    if (v && v->width != width) abort(); /* one slot, one width */
    if (!v) {
        v = malloc(sizeof *v + width);
        if (!v) abort();
        v->slot = slot;
        v->index = index;
        v->width = width;
        v->next = object_of(obj)->values;
        object_of(obj)->values = v;
    }
    memcpy(v->bytes, value, width);
}

void sc_get(sc_obj obj, uint16_t slot, uint32_t index, void *out, size_t width) {
    struct sc_value *v = find(obj, slot, index);
    memset(out, 0, width);
    if (v) memcpy(out, v->bytes, v->width < width ? v->width : width);
}

uint8_t sc_is_set(sc_obj obj, uint16_t slot, uint32_t index) { return find(obj, slot, index) != NULL; }

/* ---- recording arguments and results ----------------------------------------------------- */

static void int_text(sc_text *call, int is_signed, uint64_t bits) {
    if (is_signed) add(call, "%" PRId64, (int64_t)bits);
    else add(call, "%" PRIu64, bits);
}

static void bytes_text(sc_text *call, const void *data, size_t size) {
    const unsigned char *p = data;
    add(call, "{");
    for (size_t i = 0; i < size; ++i) add(call, i ? " %02x" : "%02x", p[i]);
    add(call, "}");
}

void sc_arg_obj(sc_text *call, sc_obj obj) {
    separate(call);
    object_text(call, obj);
}

void sc_arg_int(sc_text *call, int is_signed, uint64_t bits) {
    separate(call);
    int_text(call, is_signed, bits);
}

void sc_arg_bytes(sc_text *call, const void *data, size_t size) {
    separate(call);
    bytes_text(call, data, size);
}

void sc_arg_record(sc_text *call, int is_text, const void *data, size_t size) {
    separate(call);
    if (is_text) add(call, "\"%s\"", (const char *)data); /* texts hold a terminated string */
    else bytes_text(call, data, size);
}

static void record(sc_text *call) {
    if (recorder) recorder(recorder_user, call->text);
}

void sc_end(sc_text *call) {
    add(call, ")");
    record(call);
}

void sc_end_with(sc_text *call, const char *result) {
    add(call, ") = %s", result);
    record(call);
}

void sc_end_int(sc_text *call, int is_signed, uint64_t bits) {
    add(call, ") = ");
    int_text(call, is_signed, bits);
    record(call);
}

void sc_end_obj(sc_text *call, sc_obj obj) {
    add(call, ") = ");
    object_text(call, obj);
    record(call);
}

void sc_end_bytes(sc_text *call, const void *data, size_t size) {
    add(call, ") = ");
    bytes_text(call, data, size);
    record(call);
}

/* ---- scripted answers -------------------------------------------------------------------- */

struct answer {
    char op_text[128];
    int32_t status;
    uint32_t remaining;
};
static struct answer answers[64];
static size_t answer_count;

void scripted_answer(const char *op_text, int32_t status, uint32_t times) {
    if (answer_count == sizeof answers / sizeof answers[0] || !times) return;
    struct answer *a = &answers[answer_count++];
    snprintf(a->op_text, sizeof a->op_text, "%s", op_text);
    a->status = status;
    a->remaining = times;
}

int32_t sc_answer(const char *type_name, const char *op) {
    char text[160];
    snprintf(text, sizeof text, "%s %s", type_name, op);
    for (size_t i = 0; i < answer_count; ++i) {
        struct answer *a = &answers[i];
        if (a->remaining && strcmp(a->op_text, text) == 0) {
            --a->remaining;
            return a->status;
        }
    }
    return 0;
}

static const char *op_name(uint8_t op) {
    static const char *const names[] = {"", "create", "delete", "eod", "update", "get", "get_first", "get_gt_eq", "get_next"};
    return op < sizeof names / sizeof names[0] ? names[op] : "";
}

/* What a successful create carried, by type and key, so that a get of the key answers with it and
 * a comparison has something to compare. */
struct kept {
    struct kept *next;
    uint16_t type;
    struct sc_value *values; /* the key record among them */
};
static struct kept *kept_objects;

static struct sc_value *copy_values(const struct sc_value *v) {
    if (!v) return NULL;
    struct sc_value *copy = malloc(sizeof *copy + v->width);
    if (!copy) abort();
    memcpy(copy, v, sizeof *copy + v->width);
    copy->next = copy_values(v->next);
    return copy;
}

static void free_values(struct sc_value *v) {
    while (v) {
        struct sc_value *next = v->next;
        free(v);
        v = next;
    }
}

static struct kept **find_kept(sc_obj obj) {
    struct sc_value *key = find(obj, SC_KEY_SLOT, 0);
    for (struct kept **k = &kept_objects; *k; k = &(*k)->next) {
        struct sc_value *other = find_in((*k)->values, SC_KEY_SLOT, 0);
        if ((*k)->type == sc_header(obj)->type && key && other && key->width == other->width &&
            memcmp(key->bytes, other->bytes, key->width) == 0)
            return k;
    }
    return NULL;
}

static void keep_outcome(sc_obj obj, uint8_t op) {
    struct kept **found = find_kept(obj);
    if (op == DPA_OP_CREATE) {
        struct kept *k = malloc(sizeof *k);
        if (!k) abort();
        k->type = sc_header(obj)->type;
        k->values = copy_values(object_of(obj)->values);
        k->next = kept_objects;
        kept_objects = k;
    } else if (op == DPA_OP_GET && found) {
        free_values(object_of(obj)->values);
        object_of(obj)->values = copy_values((*found)->values);
    } else if (op == DPA_OP_DELETE && found) {
        struct kept *gone = *found;
        *found = gone->next;
        free_values(gone->values);
        free(gone);
    }
}

/* A device call that never returns, signals or not, for the runner's time limit: SCRIPTED_HANG
 * names the "TYPE OP" that hangs. */
static void hang_if_named(const char *type_name, const char *op) {
    const char *hang = getenv("SCRIPTED_HANG");
    char call[160];
    if (!hang) return;
    snprintf(call, sizeof call, "%s %s", type_name, op);
    if (strcmp(hang, call) == 0)
        for (;;) pause();
}

int32_t sc_run(sc_obj obj, uint8_t op) {
    sc_header(obj)->op = op;
    hang_if_named(object_of(obj)->type_name, op_name(op));
    int32_t status = sc_answer(object_of(obj)->type_name, op_name(op));
    if (status == 0) keep_outcome(obj, op);
    return status;
}

/* ---- batch lists ------------------------------------------------------------------------- */

struct entry {
    sc_obj obj;
    int32_t rc;
    uint8_t did_not_run;
};

struct ofa_batch_list_s {
    struct entry entries[256];
    uint32_t count, cursor;
    uint8_t continue_on_error;
};

static struct entry *entry_of(sc_obj obj, ofa_batch_list_t list) {
    for (uint32_t i = 0; list && i < list->count; ++i)
        if (list->entries[i].obj == obj) return &list->entries[i];
    return NULL;
}

static ofa_batch_list_t live_list; /* the entry accessors name an object only */

int32_t sc_batch_enqueue(ofa_batch_list_t list, sc_obj obj, uint8_t op) {
    if (!list || list->count == sizeof list->entries / sizeof list->entries[0]) return 22; /* EINVAL */
    sc_header(obj)->op = op;
    list->entries[list->count++] = (struct entry){obj, 0, 1};
    return 0;
}

#define SC_RECORD_CALL(NAME) sc_text c_; sc_begin(&c_, NAME)

ofa_batch_list_t ofa_batch_list_ctor(void) {
    SC_RECORD_CALL("ofa_batch_list_ctor");
    live_list = calloc(1, sizeof *live_list);
    if (!live_list) abort();
    sc_end(&c_);
    return live_list;
}

uint32_t ofa_batch_list_num_entries(ofa_batch_list_t list) {
    SC_RECORD_CALL("ofa_batch_list_num_entries");
    sc_end_int(&c_, 0, list->count);
    return list->count;
}

void ofa_batch_list_set_continue_on_error(ofa_batch_list_t list, uint8_t flag) {
    SC_RECORD_CALL("ofa_batch_list_set_continue_on_error");
    sc_arg_int(&c_, 0, flag);
    list->continue_on_error = flag != 0;
    sc_end(&c_);
}

/* Entries answer in order; without continue-on-error the first failure stops the batch. */
int32_t ofa_batch_list_send(ofa_batch_list_t list) {
    SC_RECORD_CALL("ofa_batch_list_send");
    int32_t first_failure = 0;
    for (uint32_t i = 0; i < list->count; ++i) {
        struct entry *e = &list->entries[i];
        if (first_failure && !list->continue_on_error) continue;
        e->rc = sc_run(e->obj, sc_header(e->obj)->op);
        e->did_not_run = 0;
        if (e->rc && !first_failure) first_failure = e->rc;
    }
    list->cursor = 0;
    sc_end_int(&c_, 1, (uint64_t)first_failure);
    return first_failure;
}

ofa_client_obj_base_t ofa_batch_list_iterate(ofa_batch_list_t list) {
    SC_RECORD_CALL("ofa_batch_list_iterate");
    sc_obj next = list->cursor < list->count ? list->entries[list->cursor++].obj : NULL;
    sc_end_obj(&c_, next);
    return next;
}

void ofa_batch_list_dtor_all(ofa_batch_list_t list) {
    SC_RECORD_CALL("ofa_batch_list_dtor_all");
    sc_end(&c_);
    for (uint32_t i = 0; i < list->count; ++i) sc_destroy(list->entries[i].obj);
    if (live_list == list) live_list = NULL;
    free(list);
}

uint8_t ofa_client_base_get_table_op(ofa_client_obj_base_t entry) {
    SC_RECORD_CALL("ofa_client_base_get_table_op");
    sc_arg_obj(&c_, entry);
    sc_end_int(&c_, 0, sc_header(entry)->op);
    return sc_header(entry)->op;
}

int32_t ofa_client_base_get_rc(ofa_client_obj_base_t entry) {
    SC_RECORD_CALL("ofa_client_base_get_rc");
    sc_arg_obj(&c_, entry);
    struct entry *e = entry_of(entry, live_list);
    int32_t rc = e ? e->rc : 0;
    sc_end_int(&c_, 1, (uint64_t)rc);
    return rc;
}

uint8_t ofa_client_base_get_did_not_run(ofa_client_obj_base_t entry) {
    SC_RECORD_CALL("ofa_client_base_get_did_not_run");
    sc_arg_obj(&c_, entry);
    struct entry *e = entry_of(entry, live_list);
    uint8_t did_not_run = e ? e->did_not_run : 1;
    sc_end_int(&c_, 0, did_not_run);
    return did_not_run;
}

/* ---- system ------------------------------------------------------------------------------ */

#define SC_INJECTION(NAME) \
    void NAME(const char *text) { SC_RECORD_CALL(#NAME); sc_arg_record(&c_, 1, text, 0); sc_end(&c_); }
SC_INJECTION(dpa_error_inject_start)
SC_INJECTION(dpa_error_inject_end)

/* the machine the scripted platform stands for: 4 NPUs, router type 16 */
#define SC_CONSTANT(NAME, VALUE) \
    uint32_t NAME(void) { SC_RECORD_CALL(#NAME); sc_end_int(&c_, 0, VALUE); return VALUE; }
SC_CONSTANT(syspro_config_get_max_num_npus, 4)
SC_CONSTANT(platform_get_router_type, 16)

void scripted_reset(void) {
    answer_count = 0;
    next_object = 1;
    while (kept_objects) {
        struct kept *next = kept_objects->next;
        free_values(kept_objects->values);
        free(kept_objects);
        kept_objects = next;
    }
}
