// Building blocks of simplane's generated per-type C functions: each forwards to the generic
// store with the type number and the attribute's slot.
#pragma once

#include "planecheck/dpa_api.h"
#include "store.hpp"

#define SP_OBJ ofa_client_obj_base_t

#define SP_CTOR_PLAIN(T, N) \
    extern "C" SP_OBJ dpa_##T##_ctor(void) { return simplane::construct(N, 1); }
#define SP_CTOR_SIZED(T, N) \
    extern "C" SP_OBJ dpa_##T##_ctor(uint32_t n) { return simplane::construct(N, n); }

#define SP_OP(T, N, OP, CODE) \
    extern "C" int32_t dpa_##T##_##OP(SP_OBJ o) { return simplane::run(o, N, CODE, false); } \
    extern "C" int32_t dpa_srv_##T##_##OP(SP_OBJ o) { return simplane::run(o, N, CODE, true); }

#define SP_COMMON(T, N) \
    extern "C" void dpa_##T##_dtor(SP_OBJ o) { simplane::destroy(o, N); } \
    extern "C" void dpa_##T##_set_key(SP_OBJ o, dpa_##T##_key_t k) { simplane::set_key(o, N, &k); } \
    extern "C" dpa_##T##_key_t dpa_##T##_get_key(SP_OBJ o) { dpa_##T##_key_t k; simplane::get_key(o, N, &k); return k; } \
    SP_OP(T, N, create, DPA_OP_CREATE) SP_OP(T, N, delete, DPA_OP_DELETE) SP_OP(T, N, update, DPA_OP_UPDATE) \
    SP_OP(T, N, get, DPA_OP_GET) SP_OP(T, N, get_first, DPA_OP_GET_FIRST) \
    SP_OP(T, N, get_gt_eq, DPA_OP_GET_GT_EQ) SP_OP(T, N, get_next, DPA_OP_GET_NEXT) \
    extern "C" int32_t dpa_##T##_replay(void) { return simplane::replay(N, simplane::Replay::Replay); } \
    extern "C" int32_t dpa_##T##_replay_start(void) { return simplane::replay(N, simplane::Replay::Start); } \
    extern "C" int32_t dpa_##T##_replay_end(void) { return simplane::replay(N, simplane::Replay::End); } \
    extern "C" void dpa_##T##_set_hdl(SP_OBJ o, uint64_t h) { simplane::header(o, N).hdl = h; } \
    extern "C" uint64_t dpa_##T##_get_hdl(SP_OBJ o) { return simplane::header(o, N).hdl; } \
    extern "C" void dpa_##T##_set_create_opt(SP_OBJ o, uint8_t v) { simplane::header(o, N).option = v; } \
    extern "C" void dpa_##T##_set_getopt(SP_OBJ o, uint8_t v) { simplane::header(o, N).option = v; } \
    extern "C" void dpa_##T##_set_retry_mode(SP_OBJ o, uint8_t v) { simplane::set_retry_mode(o, N, v); } \
    extern "C" uint32_t dpa_##T##_get_npu_result(SP_OBJ o, uint32_t i) { return simplane::npu_result(o, N, i); } \
    extern "C" int32_t ofa_##T##_chain_walk_with_key(dpa_##T##_key_t k, dpa_walk_opts_t w) { return simplane::chain_walk(N, &k, w); } \
    extern "C" void ofa_##T##_obj_printer_print_self(SP_OBJ o, dpa_print_opts_t p, int f) { simplane::print_self(o, N, p, f); } \
    extern "C" SP_OBJ ofa_##T##_get_obj_from_base(SP_OBJ b, JSON_Value *, PROCESS *) { return simplane::typed(b, N); } \
    extern "C" dpa_inst_hdr_t *ofa_##T##_inst_from_batch(SP_OBJ o, uint32_t i) { return simplane::instance(o, N, i); } \
    extern "C" int32_t ofa_client_##T##_batch_enq(ofa_batch_list_t l, SP_OBJ o, uint8_t op) { return simplane::batch_enqueue(l, o, N, op); }

#define SP_EOD(T, N) SP_OP(T, N, eod, DPA_OP_EOD)
// TOP: the number of top-level attributes (key fields and attributes); element attributes follow
#define SP_PRESENCE(T, N, TOP) \
    extern "C" uint8_t ofa_##T##_get_presence_flag(SP_OBJ o, uint32_t a) { return simplane::presence_flag(o, N, a, TOP); }
#define SP_NPU_MASK(T, N) \
    extern "C" void dpa_##T##_set_npu_mask(SP_OBJ o, uint64_t m) { simplane::header(o, N).npu_mask = m; } \
    extern "C" uint64_t dpa_##T##_get_npu_mask(SP_OBJ o) { return simplane::header(o, N).npu_mask; }

// attributes: by value or through a pointer; read-only ones have no setter; _AT forms are per element
#define SP_GET_IS_SET_VALUE(T, N, A, C, S) \
    extern "C" C dpa_##T##_get_##A(SP_OBJ o) { C v; simplane::get(o, N, S, &v); return v; } \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o) { return simplane::is_set(o, N, S); }
#define SP_GET_IS_SET_POINTER(T, N, A, C, S) \
    extern "C" void dpa_##T##_get_##A(C *out, SP_OBJ o) { simplane::get(o, N, S, out); } \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o) { return simplane::is_set(o, N, S); }
#define SP_VALUE(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, C v) { simplane::set(o, N, S, &v); } SP_GET_IS_SET_VALUE(T, N, A, C, S)
#define SP_POINTER(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, const C *v) { simplane::set(o, N, S, v); } SP_GET_IS_SET_POINTER(T, N, A, C, S)
#define SP_VALUE_RO(T, N, A, C, S) SP_GET_IS_SET_VALUE(T, N, A, C, S)
#define SP_POINTER_RO(T, N, A, C, S) SP_GET_IS_SET_POINTER(T, N, A, C, S)
#define SP_VALUE_AT(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, uint32_t i, C v) { simplane::set_at(o, N, S, i, &v); } \
    extern "C" C dpa_##T##_get_##A(SP_OBJ o, uint32_t i) { C v; simplane::get_at(o, N, S, i, &v); return v; } \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o, uint32_t i) { return simplane::is_set_at(o, N, S, i); }
#define SP_POINTER_AT(T, N, A, C, S) \
    extern "C" void dpa_##T##_set_##A(SP_OBJ o, uint32_t i, const C *v) { simplane::set_at(o, N, S, i, v); } \
    extern "C" void dpa_##T##_get_##A(C *out, SP_OBJ o, uint32_t i) { simplane::get_at(o, N, S, i, out); } \
    extern "C" uint8_t dpa_##T##_is_set_##A(SP_OBJ o, uint32_t i) { return simplane::is_set_at(o, N, S, i); }

// role reference pairs: R is <role>_<target>, K the target's key record, H and Y the two slots
#define SP_ROLE(T, N, R, K, H, Y) \
    extern "C" void ofa_##T##_set_##R##_refhdl(SP_OBJ o, uint64_t h) { simplane::set(o, N, H, &h); } \
    extern "C" uint64_t ofa_##T##_get_##R##_refhdl(SP_OBJ o) { uint64_t h; simplane::get(o, N, H, &h); return h; } \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refhdl(SP_OBJ o) { return simplane::is_set(o, N, H); } \
    extern "C" void ofa_##T##_set_##R##_refkey(SP_OBJ o, K k) { simplane::set(o, N, Y, &k); } \
    extern "C" void ofa_##T##_get_##R##_refkey(K *out, SP_OBJ o) { simplane::get(o, N, Y, out); } \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refkey(SP_OBJ o) { return simplane::is_set(o, N, Y); }
#define SP_ROLE_AT(T, N, R, K, H, Y) \
    extern "C" void ofa_##T##_set_##R##_refhdl_at(SP_OBJ o, uint32_t i, uint64_t h) { simplane::set_at(o, N, H, i, &h); } \
    extern "C" uint64_t ofa_##T##_get_##R##_refhdl_at(SP_OBJ o, uint32_t i) { uint64_t h; simplane::get_at(o, N, H, i, &h); return h; } \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refhdl_at(SP_OBJ o, uint32_t i) { return simplane::is_set_at(o, N, H, i); } \
    extern "C" void ofa_##T##_set_##R##_refkey_at(SP_OBJ o, uint32_t i, K k) { simplane::set_at(o, N, Y, i, &k); } \
    extern "C" void ofa_##T##_get_##R##_refkey_at(K *out, SP_OBJ o, uint32_t i) { simplane::get_at(o, N, Y, i, out); } \
    extern "C" uint8_t ofa_##T##_is_set_##R##_refkey_at(SP_OBJ o, uint32_t i) { return simplane::is_set_at(o, N, Y, i); }
