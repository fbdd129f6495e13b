// Which shard of a suite a run is, where it learned that, and which of the suite's files are its.
// A suite is partitioned by position in the sorted list (the default) or by a hash of each file's
// name within the suite, so that adding or removing one file moves only that file. The plan is
// written at the start of every shard's events, so that the merge of the shards can prove that
// every shard came and every file ran once.
#pragma once

#include "ci_env.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace pc::runner {

enum class ShardMode { position, hash };

const char *mode_name(ShardMode mode);

struct Shard {
    unsigned index = 0, total = 0; // index from 1; a total of 0: the run is not sharded
    ShardMode mode = ShardMode::position;
    std::string source;            // where the numbers came from: "--shard", "GitLab (CI_NODE_INDEX, CI_NODE_TOTAL)"
    bool sharded() const { return total != 0; }
    std::string text() const;      // "2/4" or "hash:2/4"
};

// --shard: "I/N", "position:I/N", "hash:I/N", or a mode alone ("hash") that takes its numbers from
// the executor's environment.
bool parse_shard_option(std::string_view text, Shard &shard, std::string &error);

// The numbers from the option when it has them, else from the first executor whose variables are
// set. Every other source that is set must say the same: two that disagree, or one that cannot
// be read, are an error naming them.
bool choose_shard(Shard &shard, const CiEnvironment &env, std::string &error);

// FNV-1a, 64 bits, of the name's bytes: a file's shard under hash:I/N is 1 + hash % N.
uint64_t name_hash(std::string_view name);

// The suite as a run plans it: every file (after -k and --last-failed), the name each has within
// the suite (its path below the folder it was found in, or its path as given), and its shard.
struct SuitePlan {
    std::vector<std::string> files, names;
    std::vector<unsigned> shard_of; // 1-based; all 1 when the run is not sharded
    std::string digest;             // of the names in order: shards of one suite share it
    std::vector<std::string> files_of(unsigned shard) const;
};

// `names` maps a path found in a folder to its name within the suite; other paths are named as given.
SuitePlan plan_suite(const std::vector<std::string> &files, const std::map<std::string, std::string> &names, const Shard &shard);

} // namespace pc::runner
