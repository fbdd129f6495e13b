#include "replay.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace pc::runner {

bool write_replayed_scenario(const std::string &recording, const std::string &path,
                             const recording::ReplayOptions &options, recording::ReplaySummary &summary) {
    FILE *out = std::fopen(path.c_str(), "w");
    if (!out) {
        fmt::print(stderr, "planecheck: cannot write the scenario to {}: {}\n", path, std::strerror(errno));
        return false;
    }
    auto problem = [](const recording::Problem &p) { fmt::print(stderr, "{}\n", p.text()); };
    summary = recording::write_scenario(recording, out, options, problem);
    bool written = std::fclose(out) == 0;
    if (!written) fmt::print(stderr, "planecheck: cannot write the scenario to {}: {}\n", path, std::strerror(errno));
    if (summary.problems)
        fmt::print(stderr, "planecheck replay: {} of {} records left out (see above)\n", summary.problems, summary.records);
    return written;
}

std::string temporary_scenario_path() {
    const char *dir = std::getenv("TMPDIR");
    std::string pattern = fmt::format("{}/planecheck-replay-XXXXXX.yaml", dir && *dir ? dir : "/tmp");
    int fd = mkstemps(pattern.data(), 5);
    if (fd < 0) return {};
    close(fd);
    return pattern;
}

} // namespace pc::runner
