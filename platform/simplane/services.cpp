// simplane offers a runner every platform service: it is the data plane a runner fully controls.
#include "planecheck/platform_services.h"
#include "planecheck/simplane.h"
#include "references.hpp"
#include "store.hpp"
#include "trace.hpp"

namespace {

void *instance_new() { return simplane_instance_new(); }
void instance_free(void *instance) { simplane_instance_free(static_cast<simplane_instance *>(instance)); }
void *bind(void *instance) { return simplane_bind(static_cast<simplane_instance *>(instance)); }

void configure(uint32_t npus, uint32_t router_type, const char *node) { simplane::configure({npus, router_type, node ? node : ""}); }

void set_log(pc_platform_log_fn log, void *user) {
    if (!log) return simplane::set_log(nullptr);
    simplane::set_log([log, user](int level, const std::string &text) { log(user, level, text.c_str()); });
}

void set_trace(pc_platform_trace_fn trace, void *user) {
    if (!trace) return simplane::set_trace(nullptr);
    simplane::set_trace([trace, user](const std::string &call) { trace(user, call.c_str()); });
}

void arm_injection(const char *op_text, int32_t status, uint32_t times) { simplane::arm_injection(op_text, status, times); }

void arm_npu_results(const char *op_text, const uint32_t *results, size_t count, uint32_t times) {
    simplane::arm_npu_results(op_text, std::vector<uint32_t>(results, results + count), times);
}

void set_sdk_side(pc_platform_sdk_fn sdk, void *user) {
    if (!sdk) return simplane::set_sdk_side(nullptr);
    simplane::set_sdk_side([sdk, user](uint16_t type, dpa_inst_hdr_t *instance) -> std::optional<int32_t> {
        int32_t status = 0;
        if (!sdk(user, type, instance, &status)) return std::nullopt;
        return status;
    });
}

void enforce_references(int enforce) { simplane::enforce_references(enforce != 0); }

const pc_platform_services services = {
    sizeof(pc_platform_services), instance_new, instance_free, bind, simplane::reset, configure, set_log, set_trace,
    arm_injection, arm_npu_results, set_sdk_side, enforce_references, "simplane",
};

} // namespace

extern "C" const pc_platform_services *pc_platform_get_services(void) { return &services; }
