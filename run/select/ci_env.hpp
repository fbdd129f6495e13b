// What CI test executors tell a test program through its environment: which shard of the work is
// this one, the file that confirms sharding is supported (Bazel), and where JUnit XML goes.
// Each executor names its shards in variables of its own; they are read in one order, so that a
// job that sets two of them (a Bazel test inside a GitLab parallel job) is seen whole.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace pc::runner {

// One executor's say on the shard: "I/N" counting from 1, as --shard takes it, or why its
// variables cannot be used.
struct ShardSource {
    std::string name;  // "Bazel (TEST_SHARD_INDEX, TEST_TOTAL_SHARDS)"
    unsigned index = 0, total = 0;
    std::string error; // a variable that is set but cannot be used, with its name
};

struct CiEnvironment {
    std::vector<ShardSource> shards; // the executors whose variables are set, in the order read
    std::string status_file;         // TEST_SHARD_STATUS_FILE: touched to say sharding was honoured
    std::string junit;               // XML_OUTPUT_FILE: where the executor collects the JUnit report
};

using GetEnv = std::function<const char *(const char *)>;

// Bazel, GoogleTest, GitLab, CircleCI, Buildkite, then a Kubernetes indexed job, whose
// JOB_COMPLETION_INDEX carries no total: `total` (--shards) or PLANECHECK_SHARDS gives it.
CiEnvironment read_ci_environment(const GetEnv &get, unsigned total = 0);

// Creates the file if it does not exist and updates its time otherwise. False with errno set.
bool touch(const std::string &path);

} // namespace pc::runner
