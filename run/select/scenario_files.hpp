// The files a run or a check is given: a directory stands for the scenario files under it, the
// way a test runner takes a folder as a suite.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace pc::runner {

// True for the names a scenario file has: *.yaml, *.yml, *.json, *.jsonl.
bool is_scenario_name(const std::string &name);

// Replaces each directory among `paths` by the scenario files found under it, recursively and in
// sorted order, hidden folders left out; other paths stay as given, in their place. False, with
// `error` naming the directory, when one cannot be read or holds no scenario file. Each file found
// gets its name within the suite in `names`: its path below the directory it was found in.
bool expand_directories(std::vector<std::string> &paths, std::string &error, std::map<std::string, std::string> *names = nullptr);

} // namespace pc::runner
