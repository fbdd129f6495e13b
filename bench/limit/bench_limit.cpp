// `make bench-limit`: planecheck side by side with the physical limit of a YAML-driven run,
// libyaml's bare event parse of the same file. Writes the scale and the realistic scenario in
// YAML, JSON and JSON Lines with a fixed seed, runs every command once per round, the rounds
// interleaved so that a busy machine slows all of them alike, and prints the medians.
#include "scenario_forms.hpp"

#include <sys/resource.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using pc::bench::Node;
using pc::bench::ScenarioWriter;

// Deterministic on every platform, unlike the standard distributions.
struct Random {
    uint64_t state = 0x9e3779b97f4a7c15ull;
    uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    uint64_t below(uint64_t n) { return next() % n; }
};

Node record(const char *op) { return Node().add("op", Node::word(op)); }

// Rounds of three steps of 1000 test_if records: creates with attributes, gets comparing them,
// deletes; the store is empty after each round. Server mode.
bool write_scale(const std::string &base, size_t records) {
    ScenarioWriter out(base, "scale", Node().add("mode", Node::word("server")), true);
    const size_t per_step = 1000, rounds = std::max<size_t>(1, records / (3 * per_step));
    for (size_t s = 0; s < rounds && out.ok(); ++s)
        for (const char *op : {"create", "get", "delete"}) {
            std::vector<Node> list;
            for (size_t r = 0; r < per_step; ++r) {
                size_t key = s * per_step + r;
                Node n = record(op).add("key_a", Node::bare(key));
                if (std::strcmp(op, "delete"))
                    n.add("attr_a1", Node::bare(key * 3)).add("attr_a2", Node::bare(7)).add("perf_test_enabled", Node::flag(true))
                        .add("rdesc_id_test1", Node().add("pool", Node::bare(1)).add("index", Node::bare(key % 65536)));
                list.push_back(std::move(n));
            }
            out.add(pc::bench::step("send", "test_if", std::move(list)));
        }
    return out.close();
}

std::string hex(uint64_t n) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(n));
    return text;
}

std::string ip4(uint64_t n) {
    return "10." + std::to_string((n >> 16) & 255) + "." + std::to_string((n >> 8) & 255) + "." + std::to_string(n & 255);
}

// What a hand-written functional scenario looks like, at length: one record per step, written in
// block style; gets compare 8 to 10 attributes; test_if, nhgroup with members, ipnh, scaleacl.
// Client mode. Twelve records per object group.
bool write_realistic(const std::string &base, size_t records) {
    ScenarioWriter out(base, "realistic", Node().add("mode", Node::word("client")), false);
    Random random;
    auto one = [&](const char *type, Node r) { out.add(pc::bench::step("send", type, {std::move(r)})); };
    for (size_t i = 0; i * 12 < records && out.ok(); ++i) {
        uint64_t a = random.below(1u << 20), b = random.below(64);
        auto test_if = [&](const char *op) {
            return record(op).add("key_a", Node::bare(i)).add("attr_a1", Node::bare(a)).add("attr_a2", Node::bare(b))
                .add("attr_a3", Node::bare(a + 1)).add("sh_key_b", Node::bare(b * 2)).add("perf_test_enabled", Node::flag(b & 1))
                .add("tcam_hdl", Node::bare(a * 7)).add("ipc_time", Node::bare(a + b))
                .add("rdesc_id_test1", Node().add("pool", Node::bare(1)).add("index", Node::bare(b)));
        };
        auto nhgroup = [&](const char *op) {
            std::vector<Node> members;
            for (uint64_t m = 0; m < 2 + (b & 1); ++m)
                members.push_back(Node().add("is_protected", Node::flag(m == 0)).add("forward_class", Node::bare(m + 1))
                                      .add("l3if_refkey", Node::bare(a + m)));
            return record(op).add("nhgroup_id", Node::bare(i)).add("fec_id", Node::quoted(hex(a))).add("num_primary_paths", Node::bare(2))
                .add("app_id", Node::bare(b)).add("obj_id", Node::bare(a * 3)).add("is_drop", Node::flag(false))
                .add("members", Node::list(std::move(members)));
        };
        auto scaleacl = [&](const char *op) {
            return record(op).add("acl_id", Node::bare(i / 1000)).add("seq_num", Node::bare(i % 1000))
                .add("acl_name", Node::word("acl-" + std::to_string(i))).add("is_ingress", Node::flag(true))
                .add("src_prefix", Node::word(ip4(a))).add("src_prefix_len", Node::bare(24)).add("dst_prefix", Node::word(ip4(a + b)))
                .add("protocol", Node::bare(6)).add("dst_port_lo", Node::bare(b)).add("dst_port_hi", Node::bare(b + 100))
                .add("dscp", Node::bare(b % 64)).add("action", Node::word("deny"));
        };
        auto ipnh = [&](const char *op) {
            return record(op).add("intf", Node::quoted(hex(i))).add("nh_addr", Node::word(ip4(a))).add("proto", Node::bare(1))
                .add("mpls_proto", Node::bare(0)).add("alloc_sz", Node::bare(3)).add("encap_id", Node::quoted(hex(b)))
                .add("is_bvi", Node::flag(false)).add("l3a_mac_addr", Node::quoted("00:11:22:33:44:55"));
        };
        one("test_if", test_if("create"));
        one("test_if", test_if("get"));
        one("nhgroup", nhgroup("create"));
        one("nhgroup", nhgroup("get"));
        one("scaleacl", scaleacl("create"));
        one("scaleacl", scaleacl("get"));
        one("ipnh", ipnh("create")); // inactive while object_set is 0: read and dispatched, not sent
        one("ipnh", ipnh("get"));
        one("scaleacl", record("delete").add("acl_id", Node::bare(i / 1000)).add("seq_num", Node::bare(i % 1000)));
        one("nhgroup", record("delete").add("nhgroup_id", Node::bare(i)));
        one("test_if", record("delete").add("key_a", Node::bare(i)));
        one("ipnh", record("delete").add("intf", Node::quoted(hex(i))).add("nh_addr", Node::word(ip4(a)))
                        .add("proto", Node::bare(1)).add("mpls_proto", Node::bare(0)));
    }
    return out.close();
}

// Creates and deletes of the first catalogue type (test_if) or the last (mpa), four attributes
// each: what differs between the two files is only where the type stands in the catalogue.
bool write_dispatch(const std::string &base, bool last, size_t records) {
    ScenarioWriter out(base, last ? "last type" : "first type", Node().add("mode", Node::word("server")), true);
    const size_t per_step = 500;
    for (size_t s = 0; s * 2 * per_step < records && out.ok(); ++s)
        for (const char *op : {"create", "delete"}) {
            std::vector<Node> list;
            for (size_t r = 0; r < per_step; ++r) {
                Node n = record(op);
                if (last) n.add("slot", Node::bare(r % 256)).add("bay", Node::bare(r / 256));
                else n.add("key_a", Node::bare(r));
                if (!std::strcmp(op, "create")) {
                    if (last) n.add("mpa_type", Node::bare(r)).add("num_ports", Node::bare(8));
                    else n.add("attr_a1", Node::bare(r)).add("attr_a2", Node::bare(8));
                }
                list.push_back(std::move(n));
            }
            out.add(pc::bench::step("send", last ? "mpa" : "test_if", std::move(list)));
        }
    return out.close();
}

// A short functional scenario, as a suite of many files has them: creates, compared gets, deletes.
constexpr const char *kSmallScenario =
    "name: small\n"
    "steps:\n"
    "  - send: { test_if: [ { op: create, key_a: 1, attr_a1: 5, hdl: if1 }, { op: create, key_a: 2, attr_a1: 6 } ] }\n"
    "  - send: { test_if: [ { op: get, key_a: 1, attr_a1: 5 }, { op: update, key_a: 2, attr_a3: 9 } ] }\n"
    "  - send: { test_if: [ { op: delete, key_a: 1 }, { op: delete, key_a: 2 }, { op: get, key_a: 1, rc: ENOENT } ] }\n";

// The least a scenario can be: one step that runs nothing. What it costs is the start-up.
constexpr const char *kEmptyScenario = "steps:\n  - expect: { mismatches: 0 }\n";

bool write_text(const std::string &path, const char *text) {
    FILE *f = std::fopen(path.c_str(), "w");
    bool ok = f && std::fputs(text, f) >= 0;
    return f && std::fclose(f) == 0 && ok;
}

// `count` copies of the small scenario, named DIR/small/NNNN.yaml.
bool write_small_files(const std::string &dir, size_t count, std::vector<std::string> &paths) {
    std::system(("mkdir -p '" + dir + "/small'").c_str());
    for (size_t i = 0; i < count; ++i) {
        std::string number = std::to_string(i);
        paths.push_back(dir + "/small/" + std::string(number.size() < 4 ? 4 - number.size() : 0, '0') + number + ".yaml");
        if (!write_text(paths.back(), kSmallScenario)) return false;
    }
    return true;
}

// CPU time (user and system) is what the table compares: on a machine shared with other work,
// the wall time of a run mostly says how long it waited for a core.
struct Sample {
    double seconds = 0; // CPU
    double wall = 0;
    double rss_mib = 0;
    bool ok = false;
};

Sample run(const std::vector<std::string> &argv, bool quiet = false) {
    auto start = std::chrono::steady_clock::now();
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        if (quiet) dup2(null, 2);
        std::vector<char *> args;
        for (const std::string &a : argv) args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid) return {};
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    double cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    return {cpu, wall, double(usage.ru_maxrss) / 1024.0, WIFEXITED(status) && WEXITSTATUS(status) == 0};
}

struct Command {
    std::string label;
    std::vector<std::string> argv;
    std::vector<Sample> samples;
    double median_seconds(double Sample::*what = &Sample::seconds) const {
        std::vector<double> t;
        for (const Sample &s : samples) t.push_back(s.*what);
        std::sort(t.begin(), t.end());
        return t.empty() ? 0 : t[t.size() / 2];
    }
    double peak_rss() const {
        double m = 0;
        for (const Sample &s : samples) m = std::max(m, s.rss_mib);
        return m;
    }
    bool all_ok() const {
        return std::all_of(samples.begin(), samples.end(), [](const Sample &s) { return s.ok; });
    }
};

struct Row {
    std::string scenario, form, recorder;
    size_t limit, command; // indexes into the command list
    size_t records;
    double target;       // the ratio the row must stay within (0: none)
    bool strictly_below; // < rather than <=
};

// A wall-time ratio: `command` beside `limit`.
struct WallRow {
    std::string files, run, beside;
    size_t limit, command;
    double target;
};

// Instructions retired by a command and its children: unlike CPU time, a count that a busy machine
// does not move. perf's hardware counter where the kernel offers one (user space only), else
// valgrind's callgrind, whose total of instructions executed is the same measure, slower to take.
class InstructionCounter {
public:
    enum Kind { None, Perf, Callgrind };

    InstructionCounter(std::string dir, Kind wanted) : dir_(std::move(dir)) {
        if (wanted != None && count_with(wanted, {"/bin/true"}).second) kind_ = wanted;
    }

    Kind kind() const { return kind_; }
    const char *name() const {
        return kind_ == Perf ? "perf stat -e instructions:u" : kind_ == Callgrind ? "valgrind --tool=callgrind (Ir)" : "none";
    }

    // The count, and whether the command passed and was counted.
    std::pair<uint64_t, bool> count(const std::vector<std::string> &argv) const { return count_with(kind_, argv); }

private:
    std::pair<uint64_t, bool> count_with(Kind kind, const std::vector<std::string> &argv) const {
        if (kind == None) return {0, false};
        const std::string out = dir_ + "/counts";
        std::system(("rm -rf '" + out + "' && mkdir -p '" + out + "'").c_str());
        std::vector<std::string> a = kind == Perf
            ? std::vector<std::string>{"/usr/bin/perf", "stat", "-e", "instructions:u", "-x,", "-o", out + "/perf.csv", "--"}
            : std::vector<std::string>{"/usr/bin/valgrind", "--tool=callgrind", "--trace-children=yes",
                                       "--callgrind-out-file=" + out + "/callgrind.%p", "--"};
        a.insert(a.end(), argv.begin(), argv.end());
        bool passed = run(a, true).ok;
        uint64_t total = 0;
        bool counted = kind == Perf ? read_perf(out + "/perf.csv", total) : read_callgrind(out, total);
        return {total, passed && counted};
    }

    // perf -x, writes `COUNT,UNIT,EVENT,...`; an unsupported event has `<not supported>` for COUNT.
    static bool read_perf(const std::string &path, uint64_t &total) {
        FILE *f = std::fopen(path.c_str(), "r");
        if (!f) return false;
        char line[512];
        bool found = false;
        while (std::fgets(line, sizeof line, f))
            if (std::strstr(line, ",instructions") && line[0] >= '0' && line[0] <= '9') {
                total += std::strtoull(line, nullptr, 10);
                found = true;
            }
        std::fclose(f);
        return found;
    }

    // One file per process (workers are forked); each has a `totals: N` line.
    static bool read_callgrind(const std::string &dir, uint64_t &total) {
        FILE *list = popen(("cat '" + dir + "'/callgrind.* 2>/dev/null | grep '^totals:'").c_str(), "r");
        if (!list) return false;
        char line[256];
        bool found = false;
        while (std::fgets(line, sizeof line, list)) {
            total += std::strtoull(line + 7, nullptr, 10);
            found = true;
        }
        return pclose(list) == 0 && found;
    }

    std::string dir_;
    Kind kind_ = None;
};

// A row of the instruction table: `command` beside `limit`, both counted once.
struct CountRow {
    std::string what;
    size_t limit, command;
};

constexpr double kEmptyTargetMs = 4;
constexpr double kEmptyTargetInstructions = 2;

struct Settings {
    size_t scale_records = 300000, realistic_records = 60000, dispatch_records = 100000;
    size_t small_files = 2000, big_files = 8, big_records = 30000;
    int runs = 3;
    bool write_only = false; // --write-only 1: write the scenarios, run nothing
    // --counter perf|callgrind|none: how instructions are counted (auto: perf where the kernel lets it)
    InstructionCounter::Kind counter = InstructionCounter::Perf;
    bool counter_auto = true;
    std::string dir = "build/bench-limit", planecheck = "build/planecheck", parser = "build/bench/pc_libyaml_parse";
};

bool parse(int argc, char **argv, Settings &s) {
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string k = argv[i], v = argv[i + 1];
        size_t n = std::strtoull(v.c_str(), nullptr, 10);
        if (k == "--scale") s.scale_records = n;
        else if (k == "--realistic") s.realistic_records = n;
        else if (k == "--dispatch") s.dispatch_records = n;
        else if (k == "--runs") s.runs = int(n);
        else if (k == "--small-files") s.small_files = n;
        else if (k == "--big-files") s.big_files = n;
        else if (k == "--big-records") s.big_records = n;
        else if (k == "--write-only") s.write_only = n != 0;
        else if (k == "--dir") s.dir = v;
        else if (k == "--planecheck") s.planecheck = v;
        else if (k == "--parser") s.parser = v;
        else if (k == "--counter" && (v == "perf" || v == "callgrind" || v == "none")) {
            s.counter = v == "perf" ? InstructionCounter::Perf : v == "callgrind" ? InstructionCounter::Callgrind : InstructionCounter::None;
            s.counter_auto = false;
        } else return false;
        if (k != "--dir" && k != "--planecheck" && k != "--parser" && k != "--counter" && n == 0) return false;
    }
    return argc % 2 == 1;
}

// `big_files` copies of a scale scenario of `big_records` records, for files run in parallel.
bool write_big_files(const Settings &s, std::vector<std::string> &paths) {
    const std::string base = s.dir + "/big";
    if (!write_scale(base, s.big_records)) return false;
    for (size_t i = 0; i < s.big_files; ++i) {
        paths.push_back(base + "_" + std::to_string(i) + ".yaml");
        if (std::system(("cp '" + base + ".yaml' '" + paths.back() + "'").c_str()) != 0) return false;
    }
    return true;
}

std::string mib(double v) {
    char t[32];
    std::snprintf(t, sizeof t, "%.1f", v);
    return t;
}

} // namespace

int main(int argc, char **argv) {
    Settings s;
    if (!parse(argc, argv, s)) {
        std::fprintf(stderr, "usage: pc_bench_limit [--scale RECORDS] [--realistic RECORDS] [--dispatch RECORDS] [--runs N] [--write-only 1]\n"
                             "                      [--small-files N] [--big-files N] [--big-records RECORDS]\n"
                             "                      [--dir DIR] [--planecheck PATH] [--parser PATH] [--counter perf|callgrind|none]\n");
        return 2;
    }
    std::system(("mkdir -p '" + s.dir + "'").c_str());
    const std::string scale = s.dir + "/scale", real = s.dir + "/realistic", first = s.dir + "/first_type",
                      last = s.dir + "/last_type", recording = s.dir + "/recorder.out", empty = s.dir + "/empty.yaml";
    std::vector<std::string> small, big;
    std::fprintf(stderr, "bench-limit: writing the scenarios into %s\n", s.dir.c_str());
    if (!write_scale(scale, s.scale_records) || !write_realistic(real, s.realistic_records) ||
        !write_dispatch(first, false, s.dispatch_records) || !write_dispatch(last, true, s.dispatch_records) ||
        !write_small_files(s.dir, s.small_files, small) || !write_text(empty, kEmptyScenario) || !write_big_files(s, big)) {
        std::fprintf(stderr, "bench-limit: cannot write the scenarios into %s\n", s.dir.c_str());
        return 1;
    }
    if (s.write_only) return 0;
    const size_t scale_n = std::max<size_t>(1, s.scale_records / 3000) * 3000;
    const size_t real_n = (s.realistic_records + 11) / 12 * 12;
    const size_t dispatch_n = (s.dispatch_records + 999) / 1000 * 1000;

    std::vector<Command> commands;
    auto add = [&](std::string label, std::vector<std::string> argv) {
        commands.push_back({std::move(label), std::move(argv), {}});
        return commands.size() - 1;
    };
    auto pc = [&](const std::string &file, bool recorder) {
        std::vector<std::string> a = {s.planecheck, "run", "-q", file};
        if (recorder) a.insert(a.begin() + 3, {"--recorder", recording});
        return a;
    };
    size_t scale_limit = add("libyaml scale", {s.parser, scale + ".yaml"});
    size_t scale_off = add("scale yaml", pc(scale + ".yaml", false));
    size_t scale_rec = add("scale yaml rec", pc(scale + ".yaml", true));
    size_t scale_json = add("scale json", pc(scale + ".json", false));
    size_t scale_jsonl = add("scale jsonl", pc(scale + ".jsonl", false));
    size_t scale_jsonl_rec = add("scale jsonl rec", pc(scale + ".jsonl", true));
    size_t real_limit = add("libyaml realistic", {s.parser, real + ".yaml"});
    size_t real_off = add("realistic yaml", pc(real + ".yaml", false));
    size_t real_rec = add("realistic yaml rec", pc(real + ".yaml", true));
    size_t real_jsonl = add("realistic jsonl", pc(real + ".jsonl", false));
    size_t first_run = add("first type", pc(first + ".yaml", false));
    size_t last_run = add("last type", pc(last + ".yaml", false));
    auto many = [&](const std::vector<std::string> &files, std::vector<std::string> options) {
        std::vector<std::string> a = {s.planecheck, "run", "-q"};
        a.insert(a.end(), options.begin(), options.end());
        a.insert(a.end(), files.begin(), files.end());
        return a;
    };
    size_t small_serial = add("small files", many(small, {}));
    size_t small_junit = add("small files --junit", many(small, {"--junit", s.dir + "/small.xml"}));
    size_t small_j1 = add("small files -j 1", many(small, {"-j", "1"}));
    size_t small_j2 = add("small files -j 2", many(small, {"-j", "2"}));
    size_t big_serial = add("big files", many(big, {}));
    size_t big_j2 = add("big files -j 2", many(big, {"-j", "2"}));
    // A file whose only step runs nothing is skipped, and a run of skipped files exits 1 without this.
    std::vector<std::string> empty_argv = pc(empty, false);
    empty_argv.insert(empty_argv.begin() + 3, "--allow-skipped");
    size_t empty_run = add("empty scenario", empty_argv);
    // The instruction counts' own limits: libyaml's bare parse of exactly the files each run reads.
    const std::string big_base = s.dir + "/big";
    size_t empty_limit = add("libyaml empty", {s.parser, empty});
    std::vector<std::string> parse_small = {s.parser};
    parse_small.insert(parse_small.end(), small.begin(), small.end());
    size_t small_limit = add("libyaml small files", parse_small);
    size_t big_limit = add("libyaml big", {s.parser, big_base + ".yaml"});
    size_t big_off = add("big yaml", pc(big_base + ".yaml", false));
    size_t big_rec = add("big yaml rec", pc(big_base + ".yaml", true));
    size_t big_jsonl = add("big jsonl", pc(big_base + ".jsonl", false));
    size_t big_jsonl_rec = add("big jsonl rec", pc(big_base + ".jsonl", true));

    for (int r = 0; r < s.runs; ++r) {
        std::fprintf(stderr, "bench-limit: round %d of %d\n", r + 1, s.runs);
        for (Command &c : commands) c.samples.push_back(run(c.argv));
    }

    const std::string big_one = "1 file of " + std::to_string(s.big_records) + " records";
    const std::vector<CountRow> count_rows = {
        {"empty scenario (start-up)", empty_limit, empty_run},
        {std::to_string(small.size()) + " small files, one process", small_limit, small_serial},
        {std::to_string(small.size()) + " small files, --junit", small_limit, small_junit},
        {std::to_string(small.size()) + " small files, -j 2", small_limit, small_j2},
        {big_one + ", YAML, recorder off", big_limit, big_off},
        {big_one + ", YAML, recorder on", big_limit, big_rec},
        {big_one + ", JSON Lines, recorder off", big_limit, big_jsonl},
        {big_one + ", JSON Lines, recorder on", big_limit, big_jsonl_rec},
    };
    InstructionCounter counter(s.dir, s.counter_auto ? InstructionCounter::Perf : s.counter);
    if (s.counter_auto && counter.kind() == InstructionCounter::None) counter = InstructionCounter(s.dir, InstructionCounter::Callgrind);
    std::vector<std::pair<uint64_t, bool>> counts(commands.size());
    if (counter.kind() != InstructionCounter::None) {
        std::fprintf(stderr, "bench-limit: counting instructions with %s\n", counter.name());
        std::vector<bool> counted(commands.size());
        for (const CountRow &row : count_rows)
            for (size_t i : {row.limit, row.command})
                if (!counted[i]) {
                    counts[i] = counter.count(commands[i].argv);
                    counted[i] = true;
                }
    }
    std::remove(recording.c_str());

    const std::vector<Row> rows = {
        {"scale (server)", "YAML", "off", scale_limit, scale_off, scale_n, 1.3, false},
        {"scale (server)", "YAML", "file", scale_limit, scale_rec, scale_n, 1.6, false},
        {"scale (server)", "JSON", "off", scale_limit, scale_json, scale_n, 0, false},
        {"scale (server)", "JSON Lines", "off", scale_limit, scale_jsonl, scale_n, 1.0, true},
        {"scale (server)", "JSON Lines", "file", scale_limit, scale_jsonl_rec, scale_n, 0, false},
        {"realistic (client)", "YAML", "off", real_limit, real_off, real_n, 1.3, false},
        {"realistic (client)", "YAML", "file", real_limit, real_rec, real_n, 1.6, false},
        {"realistic (client)", "JSON Lines", "off", real_limit, real_jsonl, real_n, 1.0, true},
        {"last type / first type", "YAML", "off", first_run, last_run, dispatch_n, 1.2, false},
    };
    bool failed_run = false, missed = false;
    std::printf("\nmedians of %d interleaved runs; times are CPU seconds (user + system); limit = libyaml's bare event "
                "parse of the YAML form (for the last row: the run of the first type)\n\n", s.runs);
    std::printf("| scenario | form | recorder | records | limit s | planecheck s | ratio | target | records/s | wall ratio | peak RSS MiB |\n");
    std::printf("|---|---|---|---:|---:|---:|---:|---|---:|---:|---:|\n");
    for (const Row &row : rows) {
        const Command &limit = commands[row.limit], &c = commands[row.command];
        double ratio = c.median_seconds() / limit.median_seconds();
        bool holds = !row.target || (row.strictly_below ? ratio < row.target : ratio <= row.target);
        missed |= !holds;
        std::string target = row.target ? std::string(row.strictly_below ? "< " : "<= ") + mib(row.target) + (holds ? " holds" : " MISSED") : "";
        double wall_ratio = c.median_seconds(&Sample::wall) / limit.median_seconds(&Sample::wall);
        std::printf("| %s | %s | %s | %zu | %.3f | %.3f | %.2f | %s | %.0f | %.2f | %s |\n", row.scenario.c_str(), row.form.c_str(),
                    row.recorder.c_str(), row.records, limit.median_seconds(), c.median_seconds(), ratio, target.c_str(),
                    double(row.records) / c.median_seconds(), wall_ratio, mib(c.peak_rss()).c_str());
    }
    for (const Command &c : commands)
        if (!c.all_ok()) {
            std::fprintf(stderr, "bench-limit: '%s' did not pass (run it by hand to see why)\n", c.label.c_str());
            failed_run = true;
        }
    const std::string small_label = std::to_string(small.size()) + " small files",
                      big_label = std::to_string(big.size()) + " files of " + std::to_string(s.big_records) + " records";
    const std::vector<WallRow> wall_rows = {
        {small_label, "--junit", "one process", small_serial, small_junit, 1.3},
        {small_label, "-j 1", "one process", small_serial, small_j1, 1.3},
        {small_label, "-j 2", "one process", small_serial, small_j2, 0.7},
        {big_label, "-j 2", "one process", big_serial, big_j2, 0.6},
        {"scale (server), YAML", "--recorder", "libyaml's bare parse", scale_limit, scale_rec, 1.15},
    };
    std::printf("\nwall time, medians of the same rounds: files in worker processes beside one process, and a big file "
                "beside its bare parse\n\n");
    std::printf("| files | run | beside | beside wall s | wall s | wall ratio | target |\n|---|---|---|---:|---:|---:|---|\n");
    for (const WallRow &row : wall_rows) {
        double beside = commands[row.limit].median_seconds(&Sample::wall), wall = commands[row.command].median_seconds(&Sample::wall);
        bool holds = wall / beside <= row.target;
        missed |= !holds;
        std::printf("| %s | %s | %s | %.3f | %.3f | %.2f | <= %.2f %s |\n", row.files.c_str(), row.run.c_str(), row.beside.c_str(), beside,
                    wall, wall / beside, row.target, holds ? "holds" : "MISSED");
    }
    if (counter.kind() == InstructionCounter::None) {
        std::printf("\nno instruction counts: neither perf's hardware counter nor valgrind is available\n");
    } else {
        std::printf("\ninstructions of one run each, counted by %s over the process and its workers; limit = libyaml's "
                    "bare parse of the same YAML files; CPU ms and wall are the medians of the rounds\n\n", counter.name());
        std::printf("| run | limit instructions | planecheck instructions | ratio | limit CPU ms | planecheck CPU ms | CPU ratio | wall ratio |\n");
        std::printf("|---|---:|---:|---:|---:|---:|---:|---:|\n");
        for (const CountRow &row : count_rows) {
            const Command &limit = commands[row.limit], &c = commands[row.command];
            bool both = counts[row.limit].second && counts[row.command].second;
            if (!both) std::fprintf(stderr, "bench-limit: '%s' was not counted (run it by hand to see why)\n", row.what.c_str());
            failed_run |= !both;
            double ratio = both ? double(counts[row.command].first) / double(counts[row.limit].first) : 0;
            std::printf("| %s | %llu | %llu | %.2f | %.1f | %.1f | %.2f | %.2f |\n", row.what.c_str(),
                        static_cast<unsigned long long>(counts[row.limit].first), static_cast<unsigned long long>(counts[row.command].first),
                        ratio, limit.median_seconds() * 1000, c.median_seconds() * 1000, c.median_seconds() / limit.median_seconds(),
                        c.median_seconds(&Sample::wall) / limit.median_seconds(&Sample::wall));
        }
        double empty_ratio = double(counts[empty_run].first) / double(std::max<uint64_t>(1, counts[empty_limit].first));
        missed |= empty_ratio > kEmptyTargetInstructions;
        std::printf("\nthe empty scenario's instructions: %.1fx libyaml's bare parse, target <= %.0fx %s\n", empty_ratio,
                    kEmptyTargetInstructions, empty_ratio <= kEmptyTargetInstructions ? "holds" : "MISSED");
    }
    double empty_ms = commands[empty_run].median_seconds() * 1000;
    missed |= empty_ms > kEmptyTargetMs;
    std::printf("\nan empty scenario (one step that runs nothing): %.1f ms of CPU, target <= %.0f ms %s\n", empty_ms, kEmptyTargetMs,
                empty_ms <= kEmptyTargetMs ? "holds" : "MISSED");
    if (missed) std::printf("\nsome targets were missed (see README, Performance)\n");
    return failed_run ? 1 : 0;
}
