// planecheck diff A B: the command around the recording comparison.
#pragma once

#include <string>
#include <vector>

namespace pc::runner {

// Prints the differences (text or JSON) on standard output, unreadable records on standard
// error; returns the exit status: 0 equal, 1 different, 2 unreadable.
int diff_command(const std::string &a, const std::string &b, const std::vector<std::string> &ignore, bool json);

} // namespace pc::runner
