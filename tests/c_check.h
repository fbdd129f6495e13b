/* The checks of the tests written in C: a failed check is counted and named with its line, and
 * the test goes on; main returns the count. */
#ifndef PC_TESTS_C_CHECK_H
#define PC_TESTS_C_CHECK_H

#include <stdio.h>

static int failures;

#define CHECK(condition)                                                                   \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            ++failures;                                                                    \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
        }                                                                                  \
    } while (0)

#endif
