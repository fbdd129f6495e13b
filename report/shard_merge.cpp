#include "shard_merge.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

namespace pc::report {
namespace {

std::string suite_of(const Stream &s) {
    return fmt::format("{} files, {} by {}, digest {}", s.suite_size, s.shards, s.shard_mode, s.suite_digest);
}

// Streams that are shards of the suite the first shard names; the others are named.
std::vector<const Stream *> shards_of_one_suite(const Run &run, std::vector<std::string> &missing) {
    std::vector<const Stream *> shards;
    if (std::none_of(run.streams.begin(), run.streams.end(), [](const Stream &s) { return s.shards != 0; })) return shards;
    const Stream *first = nullptr;
    for (const Stream &s : run.streams) {
        if (!s.shards) {
            if (s.suite_known) missing.push_back(fmt::format("the events file {} holds a whole run, not a shard", s.source));
            continue;
        }
        if (!first) first = &s;
        if (suite_of(s) != suite_of(*first))
            missing.push_back(fmt::format("the events file {} is shard {}/{} of another suite ({}) than {} ({})", s.source, s.shard, s.shards,
                                          suite_of(s), first->source, suite_of(*first)));
        else
            shards.push_back(&s);
    }
    return shards;
}

std::vector<std::string> planned_files_of(const Stream &s, unsigned shard) {
    std::vector<std::string> files;
    for (const PlannedFile &p : s.plan)
        if (p.shard == shard) files.push_back(p.file);
    return files;
}

// Shards 1..N each in one stream.
void check_every_shard_came(const std::vector<const Stream *> &shards, std::vector<std::string> &missing) {
    std::map<unsigned, const Stream *> by_index;
    for (const Stream *s : shards)
        if (auto [at, added] = by_index.emplace(s->shard, s); !added)
            missing.push_back(fmt::format("shard {}/{} is in two events files: {} and {}", s->shard, s->shards, at->second->source, s->source));
    unsigned total = shards.front()->shards;
    for (unsigned i = 1; i <= total; ++i) {
        if (by_index.count(i)) continue;
        std::vector<std::string> files = planned_files_of(*shards.front(), i);
        missing.push_back(files.empty() ? fmt::format("shard {}/{} is missing (it had no files)", i, total)
                                        : fmt::format("shard {}/{} is missing: its {} never ran here: {}", i, total,
                                                      files.size() == 1 ? "file" : fmt::format("{} files", files.size()),
                                                      fmt::join(files, ", ")));
    }
}

// Every file of the suite reported once, by the shard that planned it.
void check_every_file_once(const Run &run, const std::vector<const Stream *> &shards, std::vector<std::string> &missing) {
    std::map<std::string, std::string> name_of; // "stream index\npath" -> name within the suite
    std::map<const Stream *, size_t> index;
    for (size_t k = 0; k < run.streams.size(); ++k) index[&run.streams[k]] = k;
    for (const Stream *s : shards)
        for (const PlannedFile &p : s->plan) name_of[fmt::format("{}\n{}", index[s], p.file)] = p.name;
    std::map<std::string, unsigned> reported;
    for (const FileRecord &f : run.files) {
        const Stream &s = run.streams[f.stream];
        if (!s.shards) continue;
        auto named = name_of.find(fmt::format("{}\n{}", f.stream, f.path));
        if (named == name_of.end()) missing.push_back(fmt::format("{} in {} is not a file of the suite's plan", f.path, s.source));
        else ++reported[named->second];
    }
    std::map<unsigned, bool> came;
    for (const Stream *s : shards) came[s->shard] = true;
    for (const PlannedFile &p : shards.front()->plan) {
        unsigned times = reported.count(p.name) ? reported[p.name] : 0;
        if (times > 1) missing.push_back(fmt::format("{} was reported {} times: each file of the suite runs in one shard", p.file, times));
        else if (!times && came.count(p.shard)) missing.push_back(fmt::format("{} of shard {}/{} was never reported", p.file, p.shard, shards.front()->shards));
    }
}

} // namespace

std::vector<std::string> check_shards(const Run &run) {
    std::vector<std::string> missing;
    std::vector<const Stream *> shards = shards_of_one_suite(run, missing);
    if (shards.empty()) return missing;
    check_every_shard_came(shards, missing);
    check_every_file_once(run, shards, missing);
    return missing;
}

} // namespace pc::report
