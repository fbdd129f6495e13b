// Compares two recorder files record by record and field by field, in file order, aligning them
// like a line diff inside a bounded window so that memory stays flat for files of any length.
#pragma once

#include "reader.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace pc::recording {

struct DiffOptions {
    std::vector<std::string> ignore; // field names left out of the comparison (recorder_timestamp always is)
    size_t window = 256;             // records looked ahead on each side to realign after a gap
    // Called now and then with how many bytes of A have been read, for a progress line.
    std::function<void(size_t bytes_of_a)> progress;
};

struct Difference {
    enum Kind { Changed, OnlyInA, OnlyInB } kind = Changed;
    // For OnlyInA (OnlyInB) the other side's number and line say where the record would stand:
    // the record of that file that follows the gap (one past the last at the end of the file).
    uint64_t number_a = 0, number_b = 0;
    uint32_t line_a = 0, line_b = 0;
    std::string section, type, op;
    std::string field;                 // Changed: the field; members are "members[I].NAME"
    std::string value_a, value_b;      // Changed: the texts, "" when the field is absent
    uint32_t field_line_a = 0, field_line_b = 0;
};

struct DiffSummary {
    uint64_t records_a = 0, records_b = 0;
    uint64_t changed = 0, only_a = 0, only_b = 0;
    uint64_t problems = 0;        // records that could not be read, and files that could not be opened
    std::vector<std::string> unopened; // the files that could not be opened (or are no file)
    int exit_code() const { return problems ? 2 : changed + only_a + only_b ? 1 : 0; }
};

using DifferenceSink = std::function<void(const Difference &)>;

DiffSummary diff_recordings(const std::string &a, const std::string &b, const DiffOptions &options,
                            const DifferenceSink &difference, const ProblemSink &problem);

// Text and JSON forms of a difference, as the command prints them.
std::string difference_text(const Difference &d, const std::string &a, const std::string &b);
std::string difference_json(const Difference &d);

} // namespace pc::recording
