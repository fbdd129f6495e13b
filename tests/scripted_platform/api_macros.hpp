/* The scripted platform's per-type C functions, one macro per kind of function. catgen's
 * per-type platform sources name their building blocks by including "api_macros.hpp"; compiled
 * as C with this directory first on the include path, they become the scripted platform instead
 * of simplane. Each function records its call and forwards to the generic core. */
#include "scripted_core.h"

#define SC_SIGNED(C) ((C)-1 < (C)0)
#define SC_INT(call, C, v) sc_arg_int(call, SC_SIGNED(C), (uint64_t)(v))
#define SC_CALL(NAME) sc_text c_; sc_begin(&c_, NAME)
/* texts are recorded as text, other records as bytes */
#define SC_IS_TEXT(p) _Generic((p), const pc_string64_t *: 1, pc_string64_t *: 1, const pc_string256_t *: 1, \
                                    pc_string256_t *: 1, default: 0)
#define SC_ARG_RECORD(call, p) sc_arg_record(call, SC_IS_TEXT(p), p, sizeof *(p))

#define SP_CTOR_PLAIN(T, N) \
    sc_obj dpa_##T##_ctor(void) { SC_CALL("dpa_" #T "_ctor"); sc_obj o = sc_construct(N, #T, 1); sc_end_obj(&c_, o); return o; }
#define SP_CTOR_SIZED(T, N) \
    sc_obj dpa_##T##_ctor(uint32_t n) { \
        SC_CALL("dpa_" #T "_ctor"); SC_INT(&c_, uint32_t, n); sc_obj o = sc_construct(N, #T, n); sc_end_obj(&c_, o); return o; }

#define SC_OP(NAME, T, OP, CODE) \
    int32_t NAME(sc_obj o) { SC_CALL(#NAME); sc_arg_obj(&c_, o); int32_t r = sc_run(o, CODE); sc_end_int(&c_, 1, (uint64_t)r); return r; }
#define SP_OP(T, N, OP, CODE) SC_OP(dpa_##T##_##OP, T, OP, CODE) SC_OP(dpa_srv_##T##_##OP, T, OP, CODE)
#define SC_REPLAY(T, WHICH) \
    int32_t dpa_##T##_##WHICH(void) { \
        SC_CALL("dpa_" #T "_" #WHICH); int32_t r = sc_answer(#T, #WHICH); sc_end_int(&c_, 1, (uint64_t)r); return r; }
#define SC_SET_HEADER(T, WHAT, FIELD, C) \
    void dpa_##T##_##WHAT(sc_obj o, C v) { \
        SC_CALL("dpa_" #T "_" #WHAT); sc_arg_obj(&c_, o); SC_INT(&c_, C, v); sc_header(o)->FIELD = v; sc_end(&c_); }

#define SP_COMMON(T, N) \
    void dpa_##T##_dtor(sc_obj o) { SC_CALL("dpa_" #T "_dtor"); sc_arg_obj(&c_, o); sc_end(&c_); sc_destroy(o); } \
    void dpa_##T##_set_key(sc_obj o, dpa_##T##_key_t k) { \
        SC_CALL("dpa_" #T "_set_key"); sc_arg_obj(&c_, o); sc_arg_bytes(&c_, &k, sizeof k); \
        sc_set(o, SC_KEY_SLOT, 0, &k, sizeof k); sc_end(&c_); } \
    dpa_##T##_key_t dpa_##T##_get_key(sc_obj o) { \
        SC_CALL("dpa_" #T "_get_key"); sc_arg_obj(&c_, o); dpa_##T##_key_t k; sc_get(o, SC_KEY_SLOT, 0, &k, sizeof k); \
        sc_end_bytes(&c_, &k, sizeof k); return k; } \
    SP_OP(T, N, create, DPA_OP_CREATE) SP_OP(T, N, delete, DPA_OP_DELETE) SP_OP(T, N, update, DPA_OP_UPDATE) \
    SP_OP(T, N, get, DPA_OP_GET) SP_OP(T, N, get_first, DPA_OP_GET_FIRST) \
    SP_OP(T, N, get_gt_eq, DPA_OP_GET_GT_EQ) SP_OP(T, N, get_next, DPA_OP_GET_NEXT) \
    SC_REPLAY(T, replay) SC_REPLAY(T, replay_start) SC_REPLAY(T, replay_end) \
    SC_SET_HEADER(T, set_hdl, hdl, uint64_t) \
    uint64_t dpa_##T##_get_hdl(sc_obj o) { \
        SC_CALL("dpa_" #T "_get_hdl"); sc_arg_obj(&c_, o); uint64_t h = sc_header(o)->hdl; sc_end_int(&c_, 0, h); return h; } \
    SC_SET_HEADER(T, set_create_opt, option, uint8_t) SC_SET_HEADER(T, set_getopt, option, uint8_t) \
    void dpa_##T##_set_retry_mode(sc_obj o, uint8_t v) { \
        SC_CALL("dpa_" #T "_set_retry_mode"); sc_arg_obj(&c_, o); SC_INT(&c_, uint8_t, v); \
        if (v) sc_header(o)->flags |= DPA_FLAG_RETRY_MODE; else sc_header(o)->flags &= ~DPA_FLAG_RETRY_MODE; sc_end(&c_); } \
    uint32_t dpa_##T##_get_npu_result(sc_obj o, uint32_t i) { \
        SC_CALL("dpa_" #T "_get_npu_result"); sc_arg_obj(&c_, o); SC_INT(&c_, uint32_t, i); \
        uint32_t r = i < PC_MAX_NPUS ? sc_header(o)->npu_result[i] : 0; sc_end_int(&c_, 0, r); return r; } \
    int32_t ofa_##T##_chain_walk_with_key(dpa_##T##_key_t k, dpa_walk_opts_t w) { \
        SC_CALL("ofa_" #T "_chain_walk_with_key"); sc_arg_bytes(&c_, &k, sizeof k); sc_arg_bytes(&c_, &w, sizeof w); \
        int32_t r = sc_answer(#T, "walk_by_key"); sc_end_int(&c_, 1, (uint64_t)r); return r; } \
    void ofa_##T##_obj_printer_print_self(sc_obj o, dpa_print_opts_t p, int f) { \
        SC_CALL("ofa_" #T "_obj_printer_print_self"); sc_arg_obj(&c_, o); sc_arg_bytes(&c_, &p, sizeof p); \
        SC_INT(&c_, int, f); sc_end(&c_); } \
    sc_obj ofa_##T##_get_obj_from_base(sc_obj b, JSON_Value *v, PROCESS *context) { \
        (void)v; (void)context; SC_CALL("ofa_" #T "_get_obj_from_base"); sc_arg_obj(&c_, b); sc_end_obj(&c_, b); return b; } \
    dpa_inst_hdr_t *ofa_##T##_inst_from_batch(sc_obj o, uint32_t i) { \
        SC_CALL("ofa_" #T "_inst_from_batch"); sc_arg_obj(&c_, o); SC_INT(&c_, uint32_t, i); sc_end_with(&c_, "header"); return sc_header(o); } \
    int32_t ofa_client_##T##_batch_enq(ofa_batch_list_t l, sc_obj o, uint8_t op) { \
        SC_CALL("ofa_client_" #T "_batch_enq"); sc_arg_obj(&c_, o); SC_INT(&c_, uint8_t, op); \
        int32_t r = sc_batch_enqueue(l, o, op); sc_end_int(&c_, 1, (uint64_t)r); return r; }

#define SP_EOD(T, N) SP_OP(T, N, eod, DPA_OP_EOD)
#define SP_NPU_MASK(T, N) \
    SC_SET_HEADER(T, set_npu_mask, npu_mask, uint64_t) \
    uint64_t dpa_##T##_get_npu_mask(sc_obj o) { \
        SC_CALL("dpa_" #T "_get_npu_mask"); sc_arg_obj(&c_, o); uint64_t m = sc_header(o)->npu_mask; sc_end_int(&c_, 0, m); return m; }

/* attributes, by value (numbers) or through a pointer (records); I is the element index or 0 */
#define SC_SET_VALUE(NAME, C, S, I, ...) \
    void NAME(sc_obj o, __VA_ARGS__ C v) { \
        SC_CALL(#NAME); sc_arg_obj(&c_, o); if (#I[0] == 'i') SC_INT(&c_, uint32_t, I); SC_INT(&c_, C, v); \
        sc_set(o, S, I, &v, sizeof v); sc_end(&c_); }
#define SC_GET_VALUE(NAME, C, S, I, ...) \
    C NAME(sc_obj o __VA_ARGS__) { \
        SC_CALL(#NAME); sc_arg_obj(&c_, o); if (#I[0] == 'i') SC_INT(&c_, uint32_t, I); C v; sc_get(o, S, I, &v, sizeof v); \
        sc_end_int(&c_, SC_SIGNED(C), (uint64_t)v); return v; }
#define SC_SET_POINTER(NAME, C, S, I, ...) \
    void NAME(sc_obj o, __VA_ARGS__ const C *v) { \
        SC_CALL(#NAME); sc_arg_obj(&c_, o); if (#I[0] == 'i') SC_INT(&c_, uint32_t, I); SC_ARG_RECORD(&c_, v); \
        sc_set(o, S, I, v, sizeof *v); sc_end(&c_); }
#define SC_GET_POINTER(NAME, C, S, I, ...) \
    void NAME(C *out, sc_obj o __VA_ARGS__) { \
        sc_get(o, S, I, out, sizeof *out); \
        SC_CALL(#NAME); SC_ARG_RECORD(&c_, out); sc_arg_obj(&c_, o); if (#I[0] == 'i') SC_INT(&c_, uint32_t, I); sc_end(&c_); }
#define SC_IS_SET(NAME, S, I, ...) \
    uint8_t NAME(sc_obj o __VA_ARGS__) { \
        SC_CALL(#NAME); sc_arg_obj(&c_, o); if (#I[0] == 'i') SC_INT(&c_, uint32_t, I); uint8_t r = sc_is_set(o, S, I); \
        sc_end_int(&c_, 0, r); return r; }

/* the received object's presence flag of attribute A (key fields, attributes, then element
 * attributes, whose flag is their first element's) */
#define SP_PRESENCE(T, N, TOP) \
    uint8_t ofa_##T##_get_presence_flag(sc_obj o, uint32_t a) { \
        SC_CALL("ofa_" #T "_get_presence_flag"); sc_arg_obj(&c_, o); SC_INT(&c_, uint32_t, a); \
        uint8_t r = sc_is_set(o, (uint16_t)a, 0); sc_end_int(&c_, 0, r); return r; }

#define SP_VALUE_RO(T, N, A, C, S) SC_GET_VALUE(dpa_##T##_get_##A, C, S, 0) SC_IS_SET(dpa_##T##_is_set_##A, S, 0)
#define SP_VALUE(T, N, A, C, S) SC_SET_VALUE(dpa_##T##_set_##A, C, S, 0) SP_VALUE_RO(T, N, A, C, S)
#define SP_POINTER_RO(T, N, A, C, S) SC_GET_POINTER(dpa_##T##_get_##A, C, S, 0) SC_IS_SET(dpa_##T##_is_set_##A, S, 0)
#define SP_POINTER(T, N, A, C, S) SC_SET_POINTER(dpa_##T##_set_##A, C, S, 0) SP_POINTER_RO(T, N, A, C, S)
/* element attributes are numbered apart from the top-level ones: their slots get SC_ELEMENT_SLOT */
#define SP_VALUE_AT(T, N, A, C, S) \
    SC_SET_VALUE(dpa_##T##_set_##A, C, SC_ELEMENT_SLOT(S), i, uint32_t i,) \
    SC_GET_VALUE(dpa_##T##_get_##A, C, SC_ELEMENT_SLOT(S), i, , uint32_t i) \
    SC_IS_SET(dpa_##T##_is_set_##A, SC_ELEMENT_SLOT(S), i, , uint32_t i)
#define SP_POINTER_AT(T, N, A, C, S) \
    SC_SET_POINTER(dpa_##T##_set_##A, C, SC_ELEMENT_SLOT(S), i, uint32_t i,) \
    SC_GET_POINTER(dpa_##T##_get_##A, C, SC_ELEMENT_SLOT(S), i, , uint32_t i) \
    SC_IS_SET(dpa_##T##_is_set_##A, SC_ELEMENT_SLOT(S), i, , uint32_t i)

/* role reference pairs: the handle in slot H, the target's key record in slot Y */
#define SP_ROLE(T, N, R, K, H, Y) \
    SC_SET_VALUE(ofa_##T##_set_##R##_refhdl, uint64_t, H, 0) SC_GET_VALUE(ofa_##T##_get_##R##_refhdl, uint64_t, H, 0) \
    SC_IS_SET(ofa_##T##_is_set_##R##_refhdl, H, 0) \
    void ofa_##T##_set_##R##_refkey(sc_obj o, K k) { \
        SC_CALL("ofa_" #T "_set_" #R "_refkey"); sc_arg_obj(&c_, o); sc_arg_bytes(&c_, &k, sizeof k); \
        sc_set(o, Y, 0, &k, sizeof k); sc_end(&c_); } \
    SC_GET_POINTER(ofa_##T##_get_##R##_refkey, K, Y, 0) SC_IS_SET(ofa_##T##_is_set_##R##_refkey, Y, 0)
#define SP_ROLE_AT(T, N, R, K, H, Y) \
    SC_SET_VALUE(ofa_##T##_set_##R##_refhdl_at, uint64_t, H, i, uint32_t i,) \
    SC_GET_VALUE(ofa_##T##_get_##R##_refhdl_at, uint64_t, H, i, , uint32_t i) SC_IS_SET(ofa_##T##_is_set_##R##_refhdl_at, H, i, , uint32_t i) \
    void ofa_##T##_set_##R##_refkey_at(sc_obj o, uint32_t i, K k) { \
        SC_CALL("ofa_" #T "_set_" #R "_refkey_at"); sc_arg_obj(&c_, o); SC_INT(&c_, uint32_t, i); sc_arg_bytes(&c_, &k, sizeof k); \
        sc_set(o, Y, i, &k, sizeof k); sc_end(&c_); } \
    SC_GET_POINTER(ofa_##T##_get_##R##_refkey_at, K, Y, i, , uint32_t i) SC_IS_SET(ofa_##T##_is_set_##R##_refkey_at, Y, i, , uint32_t i)
