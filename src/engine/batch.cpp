// "batch_crud" steps.
#include "common.hpp"
#include "planecheck/planecheck.h"
#include "planecheck/session.hpp"

// Batches are not built yet: a batch step is reported as a scenario error so that a run
// containing one can never pass unnoticed.
extern "C" int json_batch_crud_send(JSON_Value *value, PROCESS *context) {
    pc::support::report_value_error(context, value, "batch_crud: batch steps are not supported by this planecheck yet");
    return 0;
}
