#include "scenario_files.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace pc::runner {
namespace fs = std::filesystem;

namespace {

bool is_hidden(const fs::path &p) {
    std::string name = p.filename().string();
    return name.size() > 1 && name[0] == '.' && name != "..";
}

// The scenario files under `folder`, walked folder by folder. Anything by a scenario's name but a
// folder is the suite's: a dangling link or a file that cannot be read fails when it runs, with its
// path, rather than being left out. So does a folder inside the suite that cannot be listed: it
// stays by its own path, and opening it tells why. Linked folders are not followed (no cycles).
void add_scenarios(const fs::path &folder, std::vector<std::string> &found, std::error_code &ec) {
    fs::directory_iterator it(folder, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        std::error_code kind;
        bool is_folder = it->is_directory(kind), is_link = it->is_symlink(kind);
        if (is_folder && !is_link && !is_hidden(it->path())) {
            std::error_code inner;
            add_scenarios(it->path(), found, inner);
            if (inner) found.push_back(it->path().string());
        } else if (!is_folder && is_scenario_name(it->path().filename().string())) {
            found.push_back(it->path().string());
        }
    }
}

bool scenarios_under(const std::string &directory, std::vector<std::string> &found, std::string &error) {
    std::error_code ec;
    add_scenarios(directory, found, ec);
    if (ec) {
        error = fmt::format("{}: cannot read the directory: {}", directory, ec.message());
        return false;
    }
    if (found.empty()) {
        error = fmt::format("{}: no scenario file (*.yaml, *.yml, *.json, *.jsonl) in this directory", directory);
        return false;
    }
    std::sort(found.begin(), found.end());
    return true;
}

} // namespace

bool is_scenario_name(const std::string &name) {
    std::string extension = fs::path(name).extension().string();
    return extension == ".yaml" || extension == ".yml" || extension == ".json" || extension == ".jsonl";
}

bool expand_directories(std::vector<std::string> &paths, std::string &error, std::map<std::string, std::string> *names) {
    std::vector<std::string> expanded;
    for (const std::string &path : paths) {
        std::error_code ec;
        if (!fs::is_directory(path, ec)) {
            expanded.push_back(path);
            continue;
        }
        std::vector<std::string> found;
        if (!scenarios_under(path, found, error)) return false;
        if (names)
            for (const std::string &file : found) (*names)[file] = fs::path(file).lexically_relative(path).string();
        expanded.insert(expanded.end(), found.begin(), found.end());
    }
    paths = std::move(expanded);
    return true;
}

} // namespace pc::runner
