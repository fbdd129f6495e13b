// Coverage: which object types, operations, attributes, reference pairs and statuses a run
// exercised, measured against the descriptor tables. A report is collected while files run,
// written as JSON, read back and merged (the parts of a -j run, or the reports of several runs).
#pragma once

#include "descriptors.hpp"
#include "planecheck/session.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace pc::coverage {

// Operation records by their op text, then the two step kinds that hand records to the SDK side.
enum Op : uint8_t {
    kCreate, kUpdate, kDelete, kGet, kGetFirst, kGetNext, kGetGtEq, kEod, kWalkByKey,
    kReplay, kReplayStart, kReplayEnd, kSdkAnswer, kDump, kOpCount
};
extern const std::array<const char *, kOpCount> kOpNames; // as in records and in reports
int op_from_text(const char *text);                       // -1 for texts that are no op

// What the records of one type that ran touched. Flags are per descriptor row (attrs, roles).
struct TypeCoverage {
    std::array<uint64_t, kOpCount> ops{};
    std::vector<uint8_t> attrs, roles;
    uint64_t records() const;
};

class Report {
public:
    Report();
    ~Report();
    Report(Report &&) noexcept;
    Report &operator=(Report &&) noexcept;

    // How much of a record its operation reads: all it names, its key fields only, or nothing.
    enum class Reach : uint8_t { All, KeyFields, Nothing };
    // A record of `type` that ran as `op`: marks the attributes and the reference pairs it names
    // (as far as `reach` goes), also in its "members", leaving out pairs whose target type is
    // inactive under the context's object set.
    void note(const engine::TypeDesc &type, const JSON_Object *record, Op op, const PROCESS &context, Reach reach = Reach::All);
    void note_status(int32_t returned, int32_t expected);
    void note_file() { ++files_; }
    // What reading a report back needs: a type's entry, counts added as a whole.
    TypeCoverage &touch(const engine::TypeDesc &type);
    void add_status(bool returned, int32_t status, uint64_t n) { (returned ? returned_ : expected_)[status] += n; }
    void add_files(uint64_t n) { files_ += n; }
    void merge(const Report &other);

    // The report as JSON: see the README's coverage section for the format.
    std::string to_json() const;
    // Reads a report written by to_json and merges it in. Names this catalogue lacks are
    // reported as "FILE:LINE: ..." in `problems` and left out; false when the file is unreadable.
    bool merge_file(const std::string &path, std::vector<std::string> &problems);

    const TypeCoverage *type(size_t number) const { return types_[number].get(); }
    const std::map<int32_t, uint64_t> &returned() const { return returned_; }
    const std::map<int32_t, uint64_t> &expected() const { return expected_; }
    uint64_t files() const { return files_; }

private:
    std::vector<std::unique_ptr<TypeCoverage>> types_; // by type number; null while untouched
    std::map<int32_t, uint64_t> returned_, expected_;
    uint64_t files_ = 0;
};

// Makes the session count every operation record the engine runs (and its statuses) into `report`.
void count_into(pc_session &session, const PROCESS &process, Report &report);

// Writes the report to `path`; false (errno set) when it cannot.
bool write_file(const Report &report, const std::string &path);

// Where the report is written if the library ends the process in the middle of a file (an
// unknown table ends a run with exit status 1), so what ran until then is kept. Null: nowhere.
void write_at_exit(const Report *report, const std::string &path);
// Writes that report now, once: for an end that runs no exit hooks (an assertion's abort, a stop
// signal raised again).
void write_before_hard_end();

// "ENOENT", "DONT_CARE", or the number in hex for statuses without a name.
std::string status_text(int32_t status);

// A reference pair's name in reports: its handle key without "_refhdl" ("next_obj_lspnh").
std::string pair_name(const engine::RoleDesc &role);

} // namespace pc::coverage
