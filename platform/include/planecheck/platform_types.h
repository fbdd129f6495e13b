/* Types shared by the data-plane object interface, its JSON support library and the engine. */
#ifndef PLANECHECK_PLATFORM_TYPES_H
#define PLANECHECK_PLATFORM_TYPES_H

#include <stdint.h>

#include "planecheck/json.h"

#ifdef __cplusplus
extern "C" {
#endif

#define PC_MAX_NPUS 64

/* Handle record of a client object: the object data is an array of instances. */
struct ofa_client_obj_base_s {
    uint32_t inst_count;
    uint32_t cur_inst;
    uint32_t inst_size;
    uint32_t reserved;
    void *data;
    uint64_t zero[2];
};
typedef struct ofa_client_obj_base_s *ofa_client_obj_base_t;

typedef struct ofa_batch_list_s *ofa_batch_list_t;

/* Header of one object instance: the per-operation control values. */
typedef struct dpa_inst_hdr {
    uint16_t type;        /* type number: position in the catalogue */
    uint8_t op;           /* operation code, see DPA_OP_* */
    uint8_t option;       /* create / update / get option */
    uint32_t flags;       /* DPA_FLAG_* */
    uint32_t npu_id;
    uint32_t elem_count;  /* element count fixed at construction */
    const char *get_state;
    uint64_t hdl;
    uint64_t npu_mask;
    uint32_t npu_result[PC_MAX_NPUS];
    uint32_t inst_size;
    uint32_t reserved;
} dpa_inst_hdr_t;

#define DPA_FLAG_RETRY_MODE (1u << 10)

enum dpa_op_code {
    DPA_OP_CREATE = 1,
    DPA_OP_DELETE = 2,
    DPA_OP_EOD = 3,
    DPA_OP_UPDATE = 4,
    DPA_OP_GET = 5,
    DPA_OP_GET_FIRST = 6,
    DPA_OP_GET_GT_EQ = 7,
    DPA_OP_GET_NEXT = 8
};

typedef struct {
    uint32_t depth;
    uint32_t trans_id;
    uint64_t reserved;
} dpa_walk_opts_t;

typedef struct {
    uint32_t enabled;
    uint32_t trans_id;
} dpa_print_opts_t;

typedef struct { uint8_t addr[16]; } pc_ip6_t;
typedef struct { uint8_t addr[6]; } pc_mac_t;

typedef struct PROCESS PROCESS;

#ifdef __cplusplus
}
#endif

#endif
