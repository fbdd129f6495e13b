#include "ci_env.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pc::runner {
namespace {

bool whole_number(const char *text, unsigned long &out) {
    if (!text || !*text) return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtoul(text, &end, 10);
    return *end == '\0' && errno == 0 && text[0] != '-' && out < 1000000;
}

struct Executor {
    const char *name, *index, *total;
    unsigned first; // the index of the first shard: GitLab counts from 1, the others from 0
};

constexpr Executor kExecutors[] = {
    {"Bazel", "TEST_SHARD_INDEX", "TEST_TOTAL_SHARDS", 0},
    {"GoogleTest", "GTEST_SHARD_INDEX", "GTEST_TOTAL_SHARDS", 0},
    {"GitLab", "CI_NODE_INDEX", "CI_NODE_TOTAL", 1},
    {"CircleCI", "CIRCLE_NODE_INDEX", "CIRCLE_NODE_TOTAL", 0},
    {"Buildkite", "BUILDKITE_PARALLEL_JOB", "BUILDKITE_PARALLEL_JOB_COUNT", 0},
};

ShardSource read_source(const char *name, const char *index_name, const char *index, const char *total_name, const char *total,
                        unsigned first) {
    ShardSource s;
    s.name = fmt::format("{} ({}, {})", name, index_name, total_name);
    unsigned long i = 0, n = 0;
    if (!index || !total)
        s.error = fmt::format("{} is set without {}", index ? index_name : total_name, index ? total_name : index_name);
    else if (!whole_number(total, n) || n == 0)
        s.error = fmt::format("{}={} is not a number of shards (1 or more)", total_name, total);
    else if (!whole_number(index, i) || i < first || i >= n + first)
        s.error = fmt::format("{}={} is not a shard index from {} to {}", index_name, index, first, n - 1 + first);
    else
        s.index = unsigned(i - first + 1), s.total = unsigned(n);
    return s;
}

// A Kubernetes indexed job numbers its pods from 0 and does not say how many there are.
void read_kubernetes(const GetEnv &get, unsigned total, CiEnvironment &env) {
    const char *index = get("JOB_COMPLETION_INDEX");
    if (!index) return;
    std::string count = total ? std::to_string(total) : "";
    const char *total_name = total ? "--shards" : "PLANECHECK_SHARDS";
    if (!total) {
        const char *given = get("PLANECHECK_SHARDS");
        if (given) count = given;
    }
    ShardSource s = read_source("Kubernetes", "JOB_COMPLETION_INDEX", index, total_name, count.empty() ? nullptr : count.c_str(), 0);
    if (count.empty()) s.error = "JOB_COMPLETION_INDEX is set without the number of shards: give --shards N or PLANECHECK_SHARDS";
    env.shards.push_back(std::move(s));
}

} // namespace

CiEnvironment read_ci_environment(const GetEnv &get, unsigned total) {
    CiEnvironment env;
    for (const Executor &e : kExecutors) {
        const char *index = get(e.index), *count = get(e.total);
        // GitLab sets CI_NODE_TOTAL=1 in every job that is not parallel: one shard is no shard
        if (!index && count && std::string_view(count) == "1") continue;
        if (index || count) env.shards.push_back(read_source(e.name, e.index, index, e.total, count, e.first));
    }
    read_kubernetes(get, total, env);
    if (const char *status = get("TEST_SHARD_STATUS_FILE"); status && *status) env.status_file = status;
    if (const char *xml = get("XML_OUTPUT_FILE"); xml && *xml) env.junit = xml;
    return env;
}

bool touch(const std::string &path) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
    if (fd < 0) return false;
    bool ok = ::futimens(fd, nullptr) == 0;
    ::close(fd);
    return ok;
}

} // namespace pc::runner
