/* A second platform library, written in C: it implements the data-plane interface of
 * planecheck/dpa_api.h and planecheck/platform_api.h without a store. Every operation answers
 * with a scripted status (0 when none is scripted), objects keep what is set on them, a get answers
 * with what the successful create of its key carried, and every
 * call it receives is recorded as one line: `dpa_test_if_set_attr_a1(obj1, 5)`, with ` = R` for
 * what it returned. */
#ifndef SCRIPTED_PLATFORM_H
#define SCRIPTED_PLATFORM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The next `times` operations named by op_text ("test_if create") answer `status`. */
void scripted_answer(const char *op_text, int32_t status, uint32_t times);
/* Every call is passed to the recorder, until it is set to NULL. */
typedef void (*scripted_recorder)(void *user, const char *call);
void scripted_record_calls(scripted_recorder recorder, void *user);
/* Forgets scripted answers and created objects, and restarts object names at obj1. */
void scripted_reset(void);

#ifdef __cplusplus
}
#endif

#endif
