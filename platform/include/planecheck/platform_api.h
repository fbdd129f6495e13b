/* The parts of the data-plane interface that are the same for every object type. */
#ifndef PLANECHECK_PLATFORM_API_H
#define PLANECHECK_PLATFORM_API_H

#include "planecheck/platform_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* error injection: bracket the re-issue of an operation that met an injected error */
void dpa_error_inject_start(const char *text);
void dpa_error_inject_end(const char *text);

/* system configuration */
uint32_t syspro_config_get_max_num_npus(void);
uint32_t platform_get_router_type(void);

/* batch lists: operations of many types queued and sent with one call */
ofa_batch_list_t ofa_batch_list_ctor(void);
uint32_t ofa_batch_list_num_entries(ofa_batch_list_t list);
void ofa_batch_list_set_continue_on_error(ofa_batch_list_t list, uint8_t flag);
int32_t ofa_batch_list_send(ofa_batch_list_t list);
ofa_client_obj_base_t ofa_batch_list_iterate(ofa_batch_list_t list);
void ofa_batch_list_dtor_all(ofa_batch_list_t list);
uint8_t ofa_client_base_get_table_op(ofa_client_obj_base_t entry);
int32_t ofa_client_base_get_rc(ofa_client_obj_base_t entry);
uint8_t ofa_client_base_get_did_not_run(ofa_client_obj_base_t entry);

#ifdef __cplusplus
}
#endif

#endif
