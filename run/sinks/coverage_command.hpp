// planecheck coverage: merges coverage reports and prints what they cover of the catalogue.
#pragma once

#include "coverage.hpp"

#include <cstdio>
#include <string>
#include <vector>

namespace pc::coverage {

// A report's figures against the catalogue, as a table or as JSON.
std::string table(const Report &report, size_t reports);
std::string table_json(const Report &report);

// The attribute families (key fields, scalar attributes, ... reference pairs) with what the
// report covers of each over the whole catalogue, least covered first.
struct FamilyShare {
    const char *family;
    size_t covered, of;
};
std::vector<FamilyShare> families(const Report &report);

// What the records of one type never set or compared; empty when there is no such type.
std::string uncovered(const Report &report, const std::string &type_name, bool json);

// The command: reads `files`, prints, returns the exit status (2 when a file is unreadable
// or the type is unknown; the readable reports are still merged and printed).
int run_command(const std::vector<std::string> &files, const std::string &uncovered_type, bool json);

} // namespace pc::coverage
