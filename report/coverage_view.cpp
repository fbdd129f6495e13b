#include "coverage_view.hpp"

#include "coverage_command.hpp"
#include "engine.hpp"
#include "json_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace pc::report {
namespace {

size_t marked(const std::vector<uint8_t> &flags) { return size_t(std::count(flags.begin(), flags.end(), 1)); }

// [name, [records per operation], attributes covered, attributes, pairs covered, pairs]
void append_type(std::string &out, const engine::TypeDesc &type, const coverage::TypeCoverage *c) {
    out += '[';
    append_json_string(out, type.name);
    out += ", [";
    for (size_t op = 0; op < coverage::kOpCount; ++op) fmt::format_to(std::back_inserter(out), "{}{}", op ? "," : "", c ? c->ops[op] : 0);
    fmt::format_to(std::back_inserter(out), "], {}, {}, {}, {}]", c ? marked(c->attrs) : 0, type.attrs.size(),
                   c ? marked(c->roles) : 0, type.roles.size());
}

} // namespace

std::string coverage_json(const coverage::Report &report) {
    std::string out = fmt::format("{{\"files\": {}, \"ops\": [", report.files());
    for (size_t op = 0; op < coverage::kOpCount; ++op) {
        if (op) out += ", ";
        append_json_string(out, coverage::kOpNames[op]);
    }
    out += "],\n\"types\": [";
    for (size_t n = 0; n < engine::kTypeCount; ++n) {
        out += n ? ",\n" : "\n";
        append_type(out, *engine::kTypes[n], report.type(n));
    }
    out += "],\n\"families\": [";
    const char *sep = "";
    for (const coverage::FamilyShare &f : coverage::families(report)) {
        out += std::exchange(sep, ", ");
        fmt::format_to(std::back_inserter(out), "{{\"family\": {}, \"covered\": {}, \"of\": {}}}", json_string(f.family), f.covered, f.of);
    }
    return out + "]}";
}

} // namespace pc::report
