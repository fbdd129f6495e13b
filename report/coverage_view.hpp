// What a report page shows of a coverage report: every type of the catalogue with its records
// per operation (the heat map) and what it covers of its own rows, and the attribute families.
#pragma once

#include "coverage.hpp"

#include <string>

namespace pc::report {

// The figures as the JSON the page reads (see page/report.js, `renderCoverage`).
std::string coverage_json(const coverage::Report &report);

} // namespace pc::report
