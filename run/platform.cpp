#include "platform.hpp"

#include "scenario.hpp"

#include "planecheck/platform_api.h"
#include "planecheck/vocabulary.hpp"

#include <fmt/format.h>

#include <algorithm>

#include <dlfcn.h>

#include <cstring>

// Absent from a platform library that offers no services: then the address is null.
extern "C" __attribute__((weak)) const pc_platform_services *pc_platform_get_services(void);

namespace pc::runner {
namespace {

// The file name of the library that holds the platform's functions.
std::string library_of_platform() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void *>(&syspro_config_get_max_num_npus), &info) || !info.dli_fname) return "this platform library";
    const char *slash = std::strrchr(info.dli_fname, '/');
    return slash ? slash + 1 : info.dli_fname;
}

struct Need {
    const char *kind;
    const char *what; // the service, as the refusal names it
    bool (*offered)(const Platform &);
};

const Need needs[] = {
    {vocabulary::kStepInject, "fault injection needs", [](const Platform &p) { return p.offered(&pc_platform_services::arm_injection) != nullptr; }},
    {vocabulary::kStepNpuResult, "per-NPU results need", [](const Platform &p) { return p.offered(&pc_platform_services::arm_npu_results) != nullptr; }},
    {vocabulary::kMemberSdk, "the SDK side's answers need", [](const Platform &p) { return p.offered(&pc_platform_services::set_sdk_side) != nullptr; }},
};

} // namespace

std::string Platform::refusal(std::string_view kind) const {
    for (const Need &need : needs)
        if (kind == need.kind && !need.offered(*this))
            return fmt::format("{}: {} the reference data plane; this planecheck runs on {}", need.kind, need.what, library);
    return "";
}

const Platform &linked_platform() {
    static const Platform platform{pc_platform_get_services ? pc_platform_get_services() : nullptr, library_of_platform()};
    return platform;
}

std::optional<FileResult> refuse_unserved_steps(const Platform &platform, const std::string &path, StepSource &scan) {
    if (std::all_of(std::begin(needs), std::end(needs), [&](const Need &need) { return need.offered(platform); })) return std::nullopt;
    yaml::LoadError error;
    if (!scan.open(path, error) || !scan.read_header(error)) return std::nullopt; // the run itself says what is wrong
    std::string first;
    size_t refused = 0;
    Step step;
    bool done = false;
    while (scan.next_step(step, done, error) && !done) {
        const JSON_Object *o = json_value_get_object(step.value);
        for (size_t i = 0; o && i < json_object_get_count(o); ++i) {
            std::string refusal = platform.refusal(json_object_get_name(o, i));
            if (refusal.empty()) continue;
            const JSON_Value *at = json_object_get_value_at(o, i);
            if (!refused++) first = yaml::LoadError{path, pc_json_line(at), pc_json_column(at), refusal}.text();
        }
    }
    if (!refused) return std::nullopt;
    FileResult result;
    result.path = path;
    result.invalid = true;
    result.error = refused == 1 ? first
                                : fmt::format("{} (and {} more steps this platform cannot run; planecheck check lists them)", first, refused - 1);
    result.add_finding(result.error);
    return result;
}

PlatformInstance::PlatformInstance(const Platform &platform) {
    auto make = platform.offered(&pc_platform_services::instance_new);
    bind_ = platform.offered(&pc_platform_services::bind);
    free_ = platform.offered(&pc_platform_services::instance_free);
    if (make && bind_ && free_) instance_ = make();
}

PlatformInstance::~PlatformInstance() {
    if (instance_) free_(instance_);
}

PlatformInstance::Bound::Bound(PlatformInstance &instance) : instance_(instance) {
    if (instance_.instance_) previous_ = instance_.bind_(instance_.instance_);
}

PlatformInstance::Bound::~Bound() {
    if (instance_.instance_) instance_.bind_(previous_);
}

} // namespace pc::runner
