// The platform library the runner drives, and the services it offers beyond the data-plane
// interface. A step that needs a service the platform lacks (inject:, npu_result:, sdk:) is
// refused at its line before anything of its file runs, and is a finding of the check.
#pragma once

#include "file_run.hpp"

#include "planecheck/platform_services.h"

#include <optional>

#include <string>
#include <string_view>

namespace pc::runner {

struct Platform {
    const pc_platform_services *services = nullptr; // null: the platform offers none
    std::string library;                            // its file name, for messages: "libscripted.so"

    // The service member if the platform offers it, else null.
    template <class Member> Member offered(Member pc_platform_services::*member) const {
        static const pc_platform_services layout{};
        size_t end = size_t(reinterpret_cast<const char *>(&(layout.*member)) - reinterpret_cast<const char *>(&layout)) + sizeof(Member);
        return services && services->size >= end ? services->*member : nullptr;
    }
    // Why a step kind ("inject", "npu_result", "sdk") cannot run on this platform, or "".
    std::string refusal(std::string_view kind) const;
};

// The platform this program is linked with, asked once.
const Platform &linked_platform();

// A file with steps the platform cannot serve, refused whole before any of it runs: the first
// such step is the file's error, at its line. Nothing when the platform can run every step.
// `scan` reads the file's steps (and nothing else reads them from it).
std::optional<FileResult> refuse_unserved_steps(const Platform &platform, const std::string &path, StepSource &scan);

// A data plane of the file's own for the length of a run, where the platform keeps one per
// context; it is bound to the calling thread while a Bound guard lives.
class PlatformInstance {
public:
    explicit PlatformInstance(const Platform &platform);
    ~PlatformInstance();
    PlatformInstance(const PlatformInstance &) = delete;
    PlatformInstance &operator=(const PlatformInstance &) = delete;

    class Bound {
    public:
        explicit Bound(PlatformInstance &instance);
        ~Bound();
        Bound(const Bound &) = delete;
        Bound &operator=(const Bound &) = delete;

    private:
        PlatformInstance &instance_;
        void *previous_ = nullptr;
    };

private:
    void *(*bind_)(void *) = nullptr;
    void (*free_)(void *) = nullptr;
    void *instance_ = nullptr;
};

} // namespace pc::runner
