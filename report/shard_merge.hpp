// The shards of a suite, merged: every shard's run_start lists the whole suite and the shard of
// each file, so the merge can prove that shards 1..N all came, of one suite, each once, and that
// every file of the suite was reported exactly once. What it lacks is named, not drawn as a whole run.
#pragma once

#include "run_model.hpp"

#include <string>
#include <vector>

namespace pc::report {

// Each thing the merge lacks or has twice, as a sentence; none for a run that was not sharded.
std::vector<std::string> check_shards(const Run &run);

} // namespace pc::report
