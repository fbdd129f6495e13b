#include "excerpt.hpp"

#include <algorithm>
#include <fstream>

namespace pc::report {
namespace {

struct Wanted {
    uint32_t first, last;
    Excerpt *into;
};

Wanted around(uint32_t line, uint32_t last_named, Excerpt &into) {
    uint32_t first = line > kContextLines ? line - kContextLines : 1;
    uint32_t last = std::min(std::max(line, last_named) + kContextLines, first + kMaxExcerptLines - 1);
    return {first, last, &into};
}

std::vector<Wanted> wanted_in(FileRecord &file) {
    std::vector<Wanted> wanted;
    for (StepRecord &s : file.steps) {
        if (!s.failing() || s.line == 0) continue;
        uint32_t last = s.line;
        for (const Finding &f : s.findings) last = std::max(last, f.line);
        wanted.push_back(around(s.line, last, s.excerpt));
    }
    uint32_t at = line_in(file.status == "invalid" ? file.error : file.ended_at, file.path);
    if (at) wanted.push_back(around(at, at, file.excerpt));
    return wanted;
}

// One pass over the file, up to the last line any excerpt needs.
void read_lines(const std::string &path, std::vector<Wanted> &wanted) {
    std::ifstream in(path);
    if (!in) return;
    uint32_t end = 0;
    for (const Wanted &w : wanted) end = std::max(end, w.last);
    std::string text;
    for (uint32_t number = 1; number <= end && std::getline(in, text); ++number) {
        if (!text.empty() && text.back() == '\r') text.pop_back();
        for (Wanted &w : wanted) {
            if (number < w.first || number > w.last) continue;
            if (w.into->lines.empty()) w.into->first = number;
            w.into->lines.push_back(text);
        }
    }
}

} // namespace

uint32_t line_in(const std::string &location, const std::string &path) {
    if (location.size() <= path.size() + 1 || location.compare(0, path.size(), path) != 0 || location[path.size()] != ':')
        return 0;
    uint32_t line = 0;
    for (size_t i = path.size() + 1; i < location.size() && location[i] >= '0' && location[i] <= '9'; ++i)
        line = line * 10 + uint32_t(location[i] - '0');
    return line;
}

void read_excerpts(Run &run) {
    for (FileRecord &file : run.files) {
        std::vector<Wanted> wanted = wanted_in(file);
        if (!wanted.empty()) read_lines(file.path, wanted);
    }
}

} // namespace pc::report
