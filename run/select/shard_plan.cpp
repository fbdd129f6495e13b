#include "shard_plan.hpp"

#include <fmt/format.h>

#include <cstdio>

namespace pc::runner {
namespace {

bool read_numbers(std::string_view text, Shard &shard) {
    unsigned i = 0, n = 0;
    char end;
    std::string copy(text);
    if (std::sscanf(copy.c_str(), "%u/%u%c", &i, &n, &end) != 2 || n == 0 || i == 0 || i > n) return false;
    shard.index = i, shard.total = n;
    return true;
}

bool same_numbers(const Shard &shard, const ShardSource &source) { return shard.index == source.index && shard.total == source.total; }

// "./a.yaml" and "a.yaml" are one file of the suite.
std::string as_named(const std::string &path) {
    std::string_view p = path;
    while (p.size() > 2 && p.substr(0, 2) == "./") p.remove_prefix(2);
    return std::string(p);
}

} // namespace

const char *mode_name(ShardMode mode) { return mode == ShardMode::hash ? "hash" : "position"; }

std::string Shard::text() const { return fmt::format("{}{}/{}", mode == ShardMode::hash ? "hash:" : "", index, total); }

bool parse_shard_option(std::string_view text, Shard &shard, std::string &error) {
    std::string_view numbers = text;
    for (ShardMode mode : {ShardMode::hash, ShardMode::position}) {
        std::string_view name = mode_name(mode);
        if (numbers.substr(0, name.size()) != name) continue;
        shard.mode = mode;
        if (numbers.size() == name.size()) return true; // the executor gives the numbers
        if (numbers[name.size()] == ':') numbers.remove_prefix(name.size() + 1);
        break;
    }
    if (read_numbers(numbers, shard)) {
        shard.source = "--shard";
        return true;
    }
    error = fmt::format("--shard {}: it takes I/N with 1 <= I <= N, such as 2/4, hash:2/4 for shards that keep their files as "
                        "the suite grows, or hash alone for the numbers of the CI executor",
                        text);
    return false;
}

bool choose_shard(Shard &shard, const CiEnvironment &env, std::string &error) {
    for (const ShardSource &s : env.shards)
        if (!s.error.empty()) {
            error = s.error;
            return false;
        }
    for (const ShardSource &s : env.shards) {
        if (!shard.sharded()) {
            shard.index = s.index, shard.total = s.total, shard.source = s.name;
        } else if (!same_numbers(shard, s)) {
            error = fmt::format("the shard is {}/{} by {} but {}/{} by {}: two sources disagree; unset one, or give --shard", shard.index,
                                shard.total, shard.source, s.index, s.total, s.name);
            return false;
        }
    }
    return true;
}

uint64_t name_hash(std::string_view name) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (unsigned char c : name) h = (h ^ c) * 0x100000001b3ull;
    return h;
}

std::vector<std::string> SuitePlan::files_of(unsigned shard) const {
    std::vector<std::string> kept;
    for (size_t k = 0; k < files.size(); ++k)
        if (shard_of[k] == shard) kept.push_back(files[k]);
    return kept;
}

SuitePlan plan_suite(const std::vector<std::string> &files, const std::map<std::string, std::string> &names, const Shard &shard) {
    SuitePlan plan;
    plan.files = files;
    uint64_t digest = name_hash("");
    for (size_t k = 0; k < files.size(); ++k) {
        auto found = names.find(files[k]);
        std::string name = found != names.end() ? found->second : as_named(files[k]);
        unsigned of = !shard.sharded() ? 1
                      : shard.mode == ShardMode::hash ? unsigned(1 + name_hash(name) % shard.total)
                                                      : unsigned(1 + k % shard.total);
        plan.shard_of.push_back(of);
        digest = name_hash(fmt::format("{:016x}\n{}", digest, name));
        plan.names.push_back(std::move(name));
    }
    plan.digest = fmt::format("{:016x}", digest);
    return plan;
}

} // namespace pc::runner
