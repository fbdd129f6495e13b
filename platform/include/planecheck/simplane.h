/* simplane, the reference data plane: one instance per scenario context. The platform's C
 * functions take no context, so a runner binds a context's instance to the thread that makes the
 * context's calls; a thread with no binding uses the process's default instance. */
#ifndef PLANECHECK_SIMPLANE_H
#define PLANECHECK_SIMPLANE_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct simplane_instance simplane_instance;

/* An empty data plane: no objects, handles from 0x1001, nothing armed. */
simplane_instance *simplane_instance_new(void);
void simplane_instance_free(simplane_instance *instance);
/* Makes `instance` the calling thread's data plane (NULL: the default one) and returns the one
 * bound before, so that a caller can restore it. */
simplane_instance *simplane_bind(simplane_instance *instance);

#ifdef __cplusplus
}
#endif

#endif
