/* What a platform library may offer a runner beyond the data-plane interface: a data plane per
 * scenario context, the scenario's configuration, its log and call trace, and the services that
 * only a data plane under the runner's control can give (fault injection, per-NPU results, the
 * SDK side's answers to client calls).
 *
 * A platform library offers them by exporting pc_platform_get_services(). Every member may be NULL:
 * a runner leaves out what is not offered, and refuses the scenario steps that need a service the
 * platform does not have. A platform library that does not export the function offers nothing,
 * and the runner still drives its data-plane interface. */
#ifndef PLANECHECK_PLATFORM_SERVICES_H
#define PLANECHECK_PLATFORM_SERVICES_H

#include "planecheck/platform_types.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A line the platform writes about what it does: level 0 information, 1 an error, 2 an error that
 * the status it returned already tells the scenario about (a refused reference): not counted. */
typedef void (*pc_platform_log_fn)(void *user, int level, const char *text);
/* One call into the platform's C interface, as `dpa_test_if_create(obj1) = 0`. */
typedef void (*pc_platform_trace_fn)(void *user, const char *call);
/* The SDK side of a client call: given the instance the operation carries, it stores the status
 * the SDK side answers with in *status and returns 1, or returns 0 when it has no answer. */
typedef int (*pc_platform_sdk_fn)(void *user, uint16_t type, dpa_inst_hdr_t *instance, int32_t *status);

typedef struct pc_platform_services {
    /* sizeof(pc_platform_services) as the platform was built: members past it are absent */
    size_t size;

    /* A data plane of its own per scenario context, bound to the thread that makes its calls;
     * bind returns the instance bound before. */
    void *(*instance_new)(void);
    void (*instance_free)(void *instance);
    void *(*bind)(void *instance);
    /* Forgets every object and everything armed, before a scenario starts. */
    void (*reset)(void);
    /* The scenario's config: the NPU count, router type and node name the platform reports. */
    void (*configure)(uint32_t npus, uint32_t router_type, const char *node);
    /* NULL function: stop writing. */
    void (*set_log)(pc_platform_log_fn log, void *user);
    void (*set_trace)(pc_platform_trace_fn trace, void *user);

    /* The next `times` operations named by op_text ("test_if create") answer `status`. */
    void (*arm_injection)(const char *op_text, int32_t status, uint32_t times);
    /* The next `times` operations named by op_text report these per-NPU results. */
    void (*arm_npu_results)(const char *op_text, const uint32_t *results, size_t count, uint32_t times);
    /* Client calls reach the SDK side through `sdk` until it is set to NULL. */
    void (*set_sdk_side)(pc_platform_sdk_fn sdk, void *user);
    /* Nonzero: refuse what a real data plane refuses, a reference to no live object (ENOENT) and the
     * delete of an object still referred to (EBUSY); zero, and after reset: store references as given.
     * A platform that always refuses them needs not offer it. */
    void (*enforce_references)(int enforce);
    /* The platform's name, as a run's first event and reports give it ("simplane"); without it,
     * the file name of the library that holds the platform's functions stands in. */
    const char *name;
} pc_platform_services;

/* The services of the platform library, or NULL; asked once per process. */
const pc_platform_services *pc_platform_get_services(void);

#ifdef __cplusplus
}
#endif

#endif
