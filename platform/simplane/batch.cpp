// Batch lists: queued operations of any types, run in order by one send.
#include "planecheck/platform_api.h"
#include "store.hpp"
#include "trace.hpp"

#include <vector>

struct ofa_batch_list_s {
    struct Entry {
        ofa_client_obj_base_t obj;
        uint16_t type;
        uint8_t op;
    };
    std::vector<Entry> entries;
    bool continue_on_error = false;
    size_t cursor = 0;
};


int32_t simplane::batch_enqueue(ofa_batch_list_t list, Obj obj, uint16_t type, uint8_t op) {
    if (!list || !obj || op < DPA_OP_CREATE || op > DPA_OP_GET_NEXT) return kEinval;
    header(obj, type).op = op;
    list->entries.push_back({obj, type, op});
    batch_outcome(obj) = {};
    return kEok;
}

extern "C" {

ofa_batch_list_t ofa_batch_list_ctor(void) {
    simplane::trace::call("ofa_batch_list_ctor", {});
    return new ofa_batch_list_s;
}
uint32_t ofa_batch_list_num_entries(ofa_batch_list_t list) {
    auto n = uint32_t(list->entries.size());
    simplane::trace::call("ofa_batch_list_num_entries", {}, n);
    return n;
}
void ofa_batch_list_set_continue_on_error(ofa_batch_list_t list, uint8_t flag) {
    list->continue_on_error = flag != 0;
    simplane::trace::call("ofa_batch_list_set_continue_on_error", {flag});
}

// Runs the entries in order; without continue-on-error the first failure stops the batch and
// the entries after it do not run. The batch's status is the first failure's, or 0.
int32_t ofa_batch_list_send(ofa_batch_list_t list) {
    int32_t first_failure = simplane::kEok;
    for (auto &e : list->entries) {
        simplane::BatchOutcome &o = simplane::batch_outcome(e.obj);
        if (first_failure && !list->continue_on_error) continue;
        o.rc = simplane::run(e.obj, e.type, e.op, false);
        o.did_not_run = false;
        if (o.rc && !first_failure) first_failure = o.rc;
    }
    list->cursor = 0;
    simplane::trace::call("ofa_batch_list_send", {}, first_failure);
    return first_failure;
}

ofa_client_obj_base_t ofa_batch_list_iterate(ofa_batch_list_t list) {
    ofa_client_obj_base_t next = list->cursor < list->entries.size() ? list->entries[list->cursor++].obj : nullptr;
    simplane::trace::call("ofa_batch_list_iterate", {}, next);
    return next;
}

void ofa_batch_list_dtor_all(ofa_batch_list_t list) {
    simplane::trace::call("ofa_batch_list_dtor_all", {});
    for (auto &e : list->entries) {
        simplane::forget_batch_outcome(e.obj);
        simplane::destroy(e.obj, e.type);
        simplane::trace::forget(e.obj);
    }
    delete list;
}

uint8_t ofa_client_base_get_table_op(ofa_client_obj_base_t entry) {
    uint8_t op = static_cast<dpa_inst_hdr_t *>(entry->data)->op;
    simplane::trace::call("ofa_client_base_get_table_op", {entry}, op);
    return op;
}
int32_t ofa_client_base_get_rc(ofa_client_obj_base_t entry) {
    int32_t rc = simplane::batch_outcome(entry).rc;
    simplane::trace::call("ofa_client_base_get_rc", {entry}, rc);
    return rc;
}
uint8_t ofa_client_base_get_did_not_run(ofa_client_obj_base_t entry) {
    uint8_t did_not_run = simplane::batch_outcome(entry).did_not_run;
    simplane::trace::call("ofa_client_base_get_did_not_run", {entry}, did_not_run);
    return did_not_run;
}

}
