#include "selection.hpp"

#include "keyword_expression.hpp"
#include "last_failed.hpp"
#include "report.hpp"
#include "scenario.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/stat.h>

namespace pc::runner {
namespace {

// A file matches when the expression holds with each word looked for in its path and then in its
// scenario's name; the header is read only when a word is not in the path.
std::vector<std::string> matching(const std::vector<std::string> &files, const KeywordExpression &expression) {
    std::vector<std::string> kept;
    for (const std::string &file : files) {
        std::optional<std::string> name;
        bool holds = expression.holds([&](std::string_view word) {
            if (KeywordExpression::part_of(word, file)) return true;
            if (!name) name = scenario_name_of(file);
            return KeywordExpression::part_of(word, *name);
        });
        if (holds) kept.push_back(file);
    }
    return kept;
}

std::vector<std::string> keyword_selection(const std::vector<std::string> &files, const std::string &keyword, std::string &error) {
    std::optional<KeywordExpression> expression = KeywordExpression::parse(keyword, error);
    if (!expression) {
        error = fmt::format("-k '{}': {}", keyword, error);
        return {};
    }
    return matching(files, *expression);
}

// The files that failed when they last ran; when none of `files` did, all of them, as pytest's
// --last-failed does, and a note says so.
std::vector<std::string> last_failed_selection(const std::vector<std::string> &files, const LastFailed &state, std::vector<std::string> &notes) {
    std::vector<std::string> kept;
    for (const std::string &file : files)
        if (state.failed(file)) kept.push_back(file);
    if (kept.empty()) {
        notes.push_back(fmt::format("--last-failed: none of the {} failed when it last ran here; all of them run", plural(files.size(), "file")));
        return files;
    }
    return kept;
}

// Without files, --last-failed runs the files that failed, those still there.
std::vector<std::string> recorded_failures(const LastFailed &state, std::vector<std::string> &notes) {
    std::vector<std::string> there;
    for (const std::string &file : state.files())
        if (struct stat st {}; stat(file.c_str(), &st) == 0) there.push_back(file);
    if (there.empty()) notes.push_back("--last-failed: no file failed when it last ran here, and no file is named: nothing runs");
    return there;
}

} // namespace

std::string scenario_name_of(const std::string &path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return "";
    ScenarioReader reader;
    yaml::LoadError error;
    if (!reader.open(path, error)) return "";
    reader.read_header(error); // a header that goes wrong after its name: still has the name
    return reader.name();
}

bool select_files(std::vector<std::string> &files, const SelectRequest &request, Selected &selected, std::string &error,
                  std::vector<std::string> &notes) {
    LastFailed state(request.state_dir);
    if (request.cache_clear && !request.state_dir.empty() && !state.clear())
        notes.push_back(fmt::format("--cache-clear: cannot remove {}/{}: {}", request.state_dir, LastFailed::kFile, std::strerror(errno)));
    if (request.last_failed && !request.state_dir.empty() && !state.load(error)) {
        notes.push_back(error);
        error.clear();
    }
    bool named = !files.empty();
    if (!named && request.last_failed) files = recorded_failures(state, notes);
    size_t given = files.size();
    if (!request.keyword.empty()) {
        files = keyword_selection(files, request.keyword, error);
        if (!error.empty()) return false;
    }
    if (request.last_failed && named && !files.empty()) files = last_failed_selection(files, state, notes);
    selected.deselected = given - files.size();
    selected.none_left = given && files.empty();
    if (selected.none_left) notes.push_back(fmt::format("-k '{}' selects none of the {}", request.keyword, plural(given, "file")));
    return true;
}

} // namespace pc::runner
