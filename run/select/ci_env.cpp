#include "ci_env.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
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

// Executors number shards from 0; --shard numbers them from 1.
bool shard_from(const GetEnv &get, const char *index_name, const char *total_name, CiEnvironment &env) {
    const char *index = get(index_name), *total = get(total_name);
    if (!index && !total) return false;
    unsigned long i = 0, n = 0;
    if (!index || !total)
        env.error = fmt::format("{} is set without {}", index ? index_name : total_name, index ? total_name : index_name);
    else if (!whole_number(total, n) || n == 0)
        env.error = fmt::format("{}={} is not a number of shards (1 or more)", total_name, total);
    else if (!whole_number(index, i) || i >= n)
        env.error = fmt::format("{}={} is not a shard index from 0 to {}", index_name, index, n - 1);
    else
        env.shard = fmt::format("{}/{}", i + 1, n);
    return true;
}

} // namespace

CiEnvironment read_ci_environment(const GetEnv &get) {
    CiEnvironment env;
    if (!shard_from(get, "TEST_SHARD_INDEX", "TEST_TOTAL_SHARDS", env))
        shard_from(get, "GTEST_SHARD_INDEX", "GTEST_TOTAL_SHARDS", env);
    if (const char *status = get("TEST_SHARD_STATUS_FILE"); status && *status && !env.shard.empty()) env.status_file = status;
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
