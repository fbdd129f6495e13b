// Building blocks of simplane's generated per-type C functions: each forwards to the generic
// store with the type number and the attribute's slot, and is traced when the trace is on.
#pragma once

#include "planecheck/dpa_api.h"
#include "store.hpp"
#include "trace.hpp"

#define SP_OBJ ofa_client_obj_base_t
// traces NAME(args...) [= R] after the call
#define SP_TRACE(NAME, ...) if (simplane::trace::on) simplane::trace::call(NAME, {__VA_ARGS__})
#define SP_TRACE_R(NAME, R, ...) if (simplane::trace::on) simplane::trace::call(NAME, {__VA_ARGS__}, R)
// a function returning EXPR of type C, traced
#define SP_RETURN(C, NAME, EXPR, ...) { C r_ = EXPR; SP_TRACE_R(NAME, r_, __VA_ARGS__); return r_; }
// a function doing STATEMENT, traced
#define SP_DO(NAME, STATEMENT, ...) { STATEMENT; SP_TRACE(NAME, __VA_ARGS__); }

#define SP_CTOR_PLAIN(T, N) \
    extern "C" SP_OBJ dpa_##T##_ctor(void) SP_RETURN(SP_OBJ, "dpa_" #T "_ctor", simplane::construct(N, 1))
#define SP_CTOR_SIZED(T, N) \
    extern "C" SP_OBJ dpa_##T##_ctor(uint32_t n) SP_RETURN(SP_OBJ, "dpa_" #T "_ctor", simplane::construct(N, n), n)

#define SP_OP(T, N, OP, CODE) \
    extern "C" int32_t dpa_##T##_##OP(SP_OBJ o) SP_RETURN(int32_t, "dpa_" #T "_" #OP, simplane::run(o, N, CODE, false), o) \
    extern "C" int32_t dpa_srv_##T##_##OP(SP_OBJ o) SP_RETURN(int32_t, "dpa_srv_" #T "_" #OP, simplane::run(o, N, CODE, true), o)

#define SP_COMMON(T, N) \
    extern "C" void dpa_##T##_dtor(SP_OBJ o) { simplane::destroy(o, N); SP_TRACE("dpa_" #T "_dtor", o); simplane::trace::forget(o); } \
    extern "C" void dpa_##T##_set_key(SP_OBJ o, dpa_##T##_key_t k) SP_DO("dpa_" #T "_set_key", simplane::set_key(o, N, &k), o, k) \
    extern "C" dpa_##T##_key_t dpa_##T##_get_key(SP_OBJ o) { \
        dpa_##T##_key_t k; simplane::get_key(o, N, &k); SP_TRACE_R("dpa_" #T "_get_key", k, o); return k; } \
    SP_OP(T, N, create, DPA_OP_CREATE) SP_OP(T, N, delete, DPA_OP_DELETE) SP_OP(T, N, update, DPA_OP_UPDATE) \
    SP_OP(T, N, get, DPA_OP_GET) SP_OP(T, N, get_first, DPA_OP_GET_FIRST) \
    SP_OP(T, N, get_gt_eq, DPA_OP_GET_GT_EQ) SP_OP(T, N, get_next, DPA_OP_GET_NEXT) \
    extern "C" int32_t dpa_##T##_replay(void) SP_RETURN(int32_t, "dpa_" #T "_replay", simplane::replay(N, simplane::Replay::Replay)) \
    extern "C" int32_t dpa_##T##_replay_start(void) SP_RETURN(int32_t, "dpa_" #T "_replay_start", simplane::replay(N, simplane::Replay::Start)) \
    extern "C" int32_t dpa_##T##_replay_end(void) SP_RETURN(int32_t, "dpa_" #T "_replay_end", simplane::replay(N, simplane::Replay::End)) \
    extern "C" void dpa_##T##_set_hdl(SP_OBJ o, uint64_t h) SP_DO("dpa_" #T "_set_hdl", simplane::header(o, N).hdl = h, o, h) \
    extern "C" uint64_t dpa_##T##_get_hdl(SP_OBJ o) SP_RETURN(uint64_t, "dpa_" #T "_get_hdl", simplane::header(o, N).hdl, o) \
    extern "C" void dpa_##T##_set_create_opt(SP_OBJ o, uint8_t v) SP_DO("dpa_" #T "_set_create_opt", simplane::header(o, N).option = v, o, v) \
    extern "C" void dpa_##T##_set_getopt(SP_OBJ o, uint8_t v) SP_DO("dpa_" #T "_set_getopt", simplane::header(o, N).option = v, o, v) \
    extern "C" void dpa_##T##_set_retry_mode(SP_OBJ o, uint8_t v) SP_DO("dpa_" #T "_set_retry_mode", simplane::set_retry_mode(o, N, v), o, v) \
    extern "C" uint32_t dpa_##T##_get_npu_result(SP_OBJ o, uint32_t i) \
        SP_RETURN(uint32_t, "dpa_" #T "_get_npu_result", simplane::npu_result(o, N, i), o, i) \
    extern "C" int32_t ofa_##T##_chain_walk_with_key(dpa_##T##_key_t k, dpa_walk_opts_t w) \
        SP_RETURN(int32_t, "ofa_" #T "_chain_walk_with_key", simplane::chain_walk(N, &k, w), k, w) \
    extern "C" void ofa_##T##_obj_printer_print_self(SP_OBJ o, dpa_print_opts_t p, int f) \
        SP_DO("ofa_" #T "_obj_printer_print_self", simplane::print_self(o, N, p, f), o, p, f) \
    extern "C" SP_OBJ ofa_##T##_get_obj_from_base(SP_OBJ b, JSON_Value *, PROCESS *) \
        SP_RETURN(SP_OBJ, "ofa_" #T "_get_obj_from_base", simplane::typed(b, N), b) \
    extern "C" dpa_inst_hdr_t *ofa_##T##_inst_from_batch(SP_OBJ o, uint32_t i) \
        SP_RETURN(dpa_inst_hdr_t *, "ofa_" #T "_inst_from_batch", simplane::instance(o, N, i), o, i) \
    extern "C" int32_t ofa_client_##T##_batch_enq(ofa_batch_list_t l, SP_OBJ o, uint8_t op) \
        SP_RETURN(int32_t, "ofa_client_" #T "_batch_enq", simplane::batch_enqueue(l, o, N, op), o, op)

#define SP_EOD(T, N) SP_OP(T, N, eod, DPA_OP_EOD)
// TOP: the number of top-level attributes (key fields and attributes); element attributes follow
#define SP_PRESENCE(T, N, TOP) \
    extern "C" uint8_t ofa_##T##_get_presence_flag(SP_OBJ o, uint32_t a) \
        SP_RETURN(uint8_t, "ofa_" #T "_get_presence_flag", simplane::presence_flag(o, N, a, TOP), o, a)
#define SP_NPU_MASK(T, N) \
    extern "C" void dpa_##T##_set_npu_mask(SP_OBJ o, uint64_t m) SP_DO("dpa_" #T "_set_npu_mask", simplane::header(o, N).npu_mask = m, o, m) \
    extern "C" uint64_t dpa_##T##_get_npu_mask(SP_OBJ o) SP_RETURN(uint64_t, "dpa_" #T "_get_npu_mask", simplane::header(o, N).npu_mask, o)

// attributes: by value or through a pointer; read-only ones have no setter; _AT forms are per element
#define SP_GET_IS_SET_VALUE(T, N, A, C, S) \
    extern "C" C dpa_##T##_get_##A(SP_OBJ o) { C v; simplane::get(o, N, S, &v); SP_TRACE_R("dpa_" #T "_get_" #A, v, o); return v; } \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o) SP_RETURN(uint8_t, "dpa_" #T "_is_set_" #A, simplane::is_set(o, N, S), o)
#define SP_GET_IS_SET_POINTER(T, N, A, C, S) \
    extern "C" void dpa_##T##_get_##A(C *out, SP_OBJ o) SP_DO("dpa_" #T "_get_" #A, simplane::get(o, N, S, out), out, o) \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o) SP_RETURN(uint8_t, "dpa_" #T "_is_set_" #A, simplane::is_set(o, N, S), o)
#define SP_VALUE(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, C v) SP_DO("dpa_" #T "_set_" #A, simplane::set(o, N, S, &v), o, v) \
    SP_GET_IS_SET_VALUE(T, N, A, C, S)
#define SP_POINTER(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, const C *v) SP_DO("dpa_" #T "_set_" #A, simplane::set(o, N, S, v), o, v) \
    SP_GET_IS_SET_POINTER(T, N, A, C, S)
#define SP_VALUE_RO(T, N, A, C, S) SP_GET_IS_SET_VALUE(T, N, A, C, S)
#define SP_POINTER_RO(T, N, A, C, S) SP_GET_IS_SET_POINTER(T, N, A, C, S)
#define SP_VALUE_AT(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, uint32_t i, C v) SP_DO("dpa_" #T "_set_" #A, simplane::set_at(o, N, S, i, &v), o, i, v) \
    extern "C" C dpa_##T##_get_##A(SP_OBJ o, uint32_t i) { \
        C v; simplane::get_at(o, N, S, i, &v); SP_TRACE_R("dpa_" #T "_get_" #A, v, o, i); return v; } \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o, uint32_t i) \
        SP_RETURN(uint8_t, "dpa_" #T "_is_set_" #A, simplane::is_set_at(o, N, S, i), o, i)
#define SP_POINTER_AT(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, uint32_t i, const C *v) SP_DO("dpa_" #T "_set_" #A, simplane::set_at(o, N, S, i, v), o, i, v) \
    extern "C" void dpa_##T##_get_##A(C *out, SP_OBJ o, uint32_t i) SP_DO("dpa_" #T "_get_" #A, simplane::get_at(o, N, S, i, out), out, o, i) \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o, uint32_t i) \
        SP_RETURN(uint8_t, "dpa_" #T "_is_set_" #A, simplane::is_set_at(o, N, S, i), o, i)

// role reference pairs: R is <role>_<target>, K the target's key record, H and Y the two slots
#define SP_ROLE(T, N, R, K, H, Y) \
    extern "C" void ofa_##T##_set_##R##_refhdl(SP_OBJ o, uint64_t h) SP_DO("ofa_" #T "_set_" #R "_refhdl", simplane::set(o, N, H, &h), o, h) \
    extern "C" uint64_t ofa_##T##_get_##R##_refhdl(SP_OBJ o) { \
        uint64_t h; simplane::get(o, N, H, &h); SP_TRACE_R("ofa_" #T "_get_" #R "_refhdl", h, o); return h; } \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refhdl(SP_OBJ o) SP_RETURN(uint8_t, "ofa_" #T "_is_set_" #R "_refhdl", simplane::is_set(o, N, H), o) \
    extern "C" void ofa_##T##_set_##R##_refkey(SP_OBJ o, K k) SP_DO("ofa_" #T "_set_" #R "_refkey", simplane::set(o, N, Y, &k), o, k) \
    extern "C" void ofa_##T##_get_##R##_refkey(K *out, SP_OBJ o) SP_DO("ofa_" #T "_get_" #R "_refkey", simplane::get(o, N, Y, out), out, o) \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refkey(SP_OBJ o) SP_RETURN(uint8_t, "ofa_" #T "_is_set_" #R "_refkey", simplane::is_set(o, N, Y), o)
#define SP_ROLE_AT(T, N, R, K, H, Y) \
    extern "C" void ofa_##T##_set_##R##_refhdl_at(SP_OBJ o, uint32_t i, uint64_t h) \
        SP_DO("ofa_" #T "_set_" #R "_refhdl_at", simplane::set_at(o, N, H, i, &h), o, i, h) \
    extern "C" uint64_t ofa_##T##_get_##R##_refhdl_at(SP_OBJ o, uint32_t i) { \
        uint64_t h; simplane::get_at(o, N, H, i, &h); SP_TRACE_R("ofa_" #T "_get_" #R "_refhdl_at", h, o, i); return h; } \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refhdl_at(SP_OBJ o, uint32_t i) \
        SP_RETURN(uint8_t, "ofa_" #T "_is_set_" #R "_refhdl_at", simplane::is_set_at(o, N, H, i), o, i) \
    extern "C" void ofa_##T##_set_##R##_refkey_at(SP_OBJ o, uint32_t i, K k) \
        SP_DO("ofa_" #T "_set_" #R "_refkey_at", simplane::set_at(o, N, Y, i, &k), o, i, k) \
    extern "C" void ofa_##T##_get_##R##_refkey_at(K *out, SP_OBJ o, uint32_t i) \
        SP_DO("ofa_" #T "_get_" #R "_refkey_at", simplane::get_at(o, N, Y, i, out), out, o, i) \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refkey_at(SP_OBJ o, uint32_t i) \
        SP_RETURN(uint8_t, "ofa_" #T "_is_set_" #R "_refkey_at", simplane::is_set_at(o, N, Y, i), o, i)
