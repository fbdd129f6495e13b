// What CI test executors tell a test program through its environment: which shard of the work is
// this one (Bazel's TEST_SHARD_INDEX/TEST_TOTAL_SHARDS, GoogleTest's GTEST_SHARD_INDEX/
// GTEST_TOTAL_SHARDS), the file that confirms sharding is supported, and where JUnit XML goes.
#pragma once

#include <functional>
#include <string>

namespace pc::runner {

struct CiEnvironment {
    std::string shard;       // "I/N" (1-based, as --shard takes it), or empty when not sharded
    std::string status_file; // TEST_SHARD_STATUS_FILE: touched to say sharding was honoured
    std::string junit;       // XML_OUTPUT_FILE: where the executor collects the JUnit report
    std::string error;       // a variable that is set but cannot be used, with its name
};

using GetEnv = std::function<const char *(const char *)>;

// Bazel's variables win over GoogleTest's when both are set.
CiEnvironment read_ci_environment(const GetEnv &get);

// Creates the file if it does not exist and updates its time otherwise. False with errno set.
bool touch(const std::string &path);

} // namespace pc::runner
