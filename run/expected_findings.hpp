// expect: { findings: [ ... ] }: the findings a step names, read from the file and paired with the
// findings that came since the last expect.
#pragma once

#include "file_run.hpp"

#include "planecheck/json.h"

#include <cstdint>
#include <optional>
#include <regex>
#include <string>
#include <vector>

namespace pc::runner {

// An expect names at most this many findings, and the run keeps at most this many since an expect
// (the rest are counted), so a file with endless findings and no expect runs in flat memory.
constexpr size_t kMaxNamedFindings = 200;

// One entry of a findings: list; every key it gives holds for the finding it names.
struct FindingEntry {
    std::optional<std::string> attribute;
    std::optional<int32_t> status;
    bool status_by_name = false; // a name names a status class, as the line names it; a number is exact
    std::optional<std::regex> text;
    std::string shown;           // "{ attribute: attr_a1, status: EBUSY }"
};

// A mismatch or value error since the last expect, with its line as the log writes it.
struct CameFinding {
    Finding finding;
    std::string line;
};

// The findings since the last expect: the first kMaxNamedFindings kept, the rest counted.
struct FindingsSince {
    std::vector<CameFinding> kept;
    uint64_t left_out = 0;
    void add(const Finding &finding, const std::string &line);
    void clear() { kept.clear(), left_out = 0; }
};

// A status as a step writes it: a number, number text or a name such as ENOMEM.
struct StatusValue {
    int32_t value = 0;
    bool by_name = false;
};
// Reads a status into `out`; returns what is wrong with it, or "".
std::string read_status(const JSON_Value *status, StatusValue &out);

// Reads a findings: list; on a problem returns its message, with `problem_at` the value it is about.
std::string read_finding_entries(const JSON_Value *list, std::vector<FindingEntry> &entries, const JSON_Value *&problem_at);

// What an expect's findings: did not find: "" when each entry names a finding of its own and each
// finding is named; otherwise the lines (each "\n  ..."-led) of what was expected, what came and
// what was left over.
std::string unpaired_findings(const std::vector<FindingEntry> &entries, const FindingsSince &came);

} // namespace pc::runner
