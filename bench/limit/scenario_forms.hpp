// The benchmark's scenarios, built once as a small tree per step and written in the three forms
// planecheck reads: YAML, JSON and JSON Lines. The same steps in every form, so the forms' times
// compare like for like.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace pc::bench {

struct Node {
    enum Kind { Bare, Word, Quoted, Map, List } kind = Map;
    std::string text; // Bare: number or boolean; Word: a string YAML writes plain; Quoted: always quoted
    std::vector<std::pair<std::string, Node>> members;
    std::vector<Node> items;

    static Node bare(uint64_t n) { return {Bare, std::to_string(n), {}, {}}; }
    static Node flag(bool b) { return {Bare, b ? "true" : "false", {}, {}}; }
    static Node word(std::string s) { return {Word, std::move(s), {}, {}}; }
    static Node quoted(std::string s) { return {Quoted, std::move(s), {}, {}}; }
    static Node list(std::vector<Node> items) { return {List, {}, {}, std::move(items)}; }
    Node &add(std::string key, Node value) {
        members.emplace_back(std::move(key), std::move(value));
        return *this;
    }
};

// A step is { KIND: { TYPE: [ records ] } }.
inline Node step(const char *kind, const char *type, std::vector<Node> records) {
    Node by_type;
    by_type.add(type, Node::list(std::move(records)));
    Node s;
    s.add(kind, std::move(by_type));
    return s;
}

inline void json_text(std::string &out, const Node &n) {
    switch (n.kind) {
    case Node::Bare: out += n.text; return;
    case Node::Word: case Node::Quoted: out += '"' + n.text + '"'; return;
    case Node::List:
        out += '[';
        for (size_t i = 0; i < n.items.size(); ++i) {
            if (i) out += ", ";
            json_text(out, n.items[i]);
        }
        out += ']';
        return;
    case Node::Map:
        out += '{';
        for (size_t i = 0; i < n.members.size(); ++i) {
            out += (i ? ", \"" : "\"") + n.members[i].first + "\": ";
            json_text(out, n.members[i].second);
        }
        out += '}';
        return;
    }
}

inline void yaml_flow(std::string &out, const Node &n) {
    switch (n.kind) {
    case Node::Bare: case Node::Word: out += n.text; return;
    case Node::Quoted: out += '"' + n.text + '"'; return;
    case Node::List:
        out += "[ ";
        for (size_t i = 0; i < n.items.size(); ++i) {
            if (i) out += ", ";
            yaml_flow(out, n.items[i]);
        }
        out += " ]";
        return;
    case Node::Map:
        out += "{ ";
        for (size_t i = 0; i < n.members.size(); ++i) {
            out += (i ? ", " : "") + n.members[i].first + ": ";
            yaml_flow(out, n.members[i].second);
        }
        out += " }";
        return;
    }
}

// The step in block style down to its records; each record in flow style on one line
// (`flow_records`) or in block style, one member per line, as people write small scenarios.
inline void yaml_step(std::string &out, const Node &s, bool flow_records) {
    const auto &[kind, by_type] = s.members.front();
    const auto &[type, records] = by_type.members.front();
    out += "  - " + kind + ":\n      " + type + ":\n";
    for (const Node &r : records.items) {
        if (flow_records) {
            out += "        - ";
            yaml_flow(out, r);
            out += '\n';
            continue;
        }
        for (size_t i = 0; i < r.members.size(); ++i) {
            out += i ? "          " : "        - ";
            out += r.members[i].first + ": ";
            yaml_flow(out, r.members[i].second);
            out += '\n';
        }
    }
}

// Writes one scenario in the three forms as its steps are produced, so no form is held whole.
class ScenarioWriter {
public:
    ScenarioWriter(const std::string &base, const std::string &name, const Node &config, bool flow_records)
        : flow_records_(flow_records) {
        yaml_ = std::fopen((base + ".yaml").c_str(), "w");
        json_ = std::fopen((base + ".json").c_str(), "w");
        jsonl_ = std::fopen((base + ".jsonl").c_str(), "w");
        if (!ok()) return;
        std::string yaml_config, json_config;
        yaml_flow(yaml_config, config);
        json_text(json_config, config);
        std::fprintf(yaml_, "name: %s\nconfig: %s\nsteps:\n", name.c_str(), yaml_config.c_str());
        std::fprintf(json_, "{\"name\": \"%s\", \"config\": %s, \"steps\": [\n", name.c_str(), json_config.c_str());
        std::fprintf(jsonl_, "{\"name\": \"%s\", \"config\": %s}\n", name.c_str(), json_config.c_str());
    }
    ~ScenarioWriter() { close(); }

    bool ok() const { return yaml_ && json_ && jsonl_; }

    void add(const Node &s) {
        text_.clear();
        yaml_step(text_, s, flow_records_);
        std::fputs(text_.c_str(), yaml_);
        text_.clear();
        json_text(text_, s);
        std::fprintf(json_, "%s%s", steps_++ ? ",\n" : "", text_.c_str());
        std::fprintf(jsonl_, "%s\n", text_.c_str());
    }

    bool close() {
        if (!yaml_) return false;
        std::fputs("\n]}\n", json_);
        bool good = ok() && !std::ferror(yaml_) && !std::ferror(json_) && !std::ferror(jsonl_);
        for (FILE *f : {yaml_, json_, jsonl_})
            if (f && std::fclose(f) != 0) good = false;
        yaml_ = json_ = jsonl_ = nullptr;
        return good;
    }

private:
    FILE *yaml_ = nullptr, *json_ = nullptr, *jsonl_ = nullptr;
    bool flow_records_;
    size_t steps_ = 0;
    std::string text_;
};

} // namespace pc::bench
