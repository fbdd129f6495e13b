// "did you mean NAME?" for every message about a name that is not known: the closest known name
// by edit distance, when it is close enough to be a likely misspelling.
#pragma once

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

namespace pc::support {

// Levenshtein distance, with a swap of two neighbouring letters counted as one edit.
inline size_t edit_distance(std::string_view a, std::string_view b) {
    // three rows of the dynamic programme: the swap looks two rows back
    std::vector<size_t> before(b.size() + 1), previous(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t cost = std::tolower(static_cast<unsigned char>(a[i - 1])) == std::tolower(static_cast<unsigned char>(b[j - 1])) ? 0 : 1;
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1, previous[j - 1] + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) row[j] = std::min(row[j], before[j - 2] + 1);
        }
        std::swap(before, previous);
        std::swap(previous, row);
    }
    return previous[b.size()];
}

// The candidate closest to `name`, or "" when none is within a third of the name's length
// (at least one edit, at most three); failing that, the shortest name that `name` abbreviates.
inline std::string closest_name(std::string_view name, const std::vector<std::string_view> &candidates) {
    if (std::find(candidates.begin(), candidates.end(), name) != candidates.end()) return ""; // known: nothing to suggest
    size_t limit = std::clamp<size_t>(name.size() / 3, 1, 3);
    size_t best = limit + 1;
    std::string_view found;
    for (std::string_view c : candidates) {
        if (c == name) continue;
        // a length difference alone already costs that many edits
        size_t gap = c.size() > name.size() ? c.size() - name.size() : name.size() - c.size();
        if (gap >= best) continue;
        size_t d = edit_distance(name, c);
        if (d < best) best = d, found = c;
    }
    if (!found.empty() || name.size() < 3) return std::string(found);
    // an abbreviation ("nhg"): the shortest name it begins
    for (std::string_view c : candidates)
        if (c.size() > name.size() && c.substr(0, name.size()) == name && (found.empty() || c.size() < found.size())) found = c;
    return std::string(found);
}

// "; did you mean NAME?" for the closest candidate, or "": the end of a message about `name`.
inline std::string did_you_mean(std::string_view name, const std::vector<std::string_view> &candidates) {
    std::string found = closest_name(name, candidates);
    return found.empty() ? "" : "; did you mean " + found + "?";
}

} // namespace pc::support
