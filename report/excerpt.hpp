// The scenario's own lines around each place a report shows open: failing steps, the error of
// an invalid file, the step a file ended in. Read when the report is made, from the files as
// they are named in the events.
#pragma once

#include "run_model.hpp"

namespace pc::report {

// Lines before a place, and after the last line it names.
inline constexpr uint32_t kContextLines = 2;
// No excerpt is longer than this; a step's findings further down are left to their own lines.
inline constexpr uint32_t kMaxExcerptLines = 24;

void read_excerpts(Run &run);

// The line in "FILE:LINE" or "FILE:LINE:COL: message" about `path`; 0 when it names none.
uint32_t line_in(const std::string &location, const std::string &path);

} // namespace pc::report
