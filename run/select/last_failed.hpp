// The files that failed when they last ran in a folder, kept between runs in
// .planecheck/lastfailed.json there, so that `run --last-failed` runs them again (pytest's
// --last-failed, from its .pytest_cache). A run changes only the entries of the files it ran: a
// file that passed or was skipped leaves the list, one that failed in any way joins it, and a file
// the run never started keeps the entry it had.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace pc::runner {

class LastFailed {
public:
    static constexpr const char *kFile = "lastfailed.json";

    explicit LastFailed(std::string folder) : folder_(std::move(folder)) {}

    // Reads the list the earlier runs kept; none kept is an empty list. False, with `error`, for
    // a list that cannot be read: it is then taken as empty.
    bool load(std::string &error);
    // Forgets every entry, in the folder too (`--cache-clear`). False with errno set.
    bool clear();

    // The files that failed, in sorted order, as their keys give them.
    std::vector<std::string> files() const { return {failed_.begin(), failed_.end()}; }
    bool failed(const std::string &path) const { return failed_.count(key(path)) != 0; }
    // A file that ran in this run, and whether it failed.
    void ran(const std::string &path, bool failed);

    // Writes the list when this run changed it: a new file beside the old, renamed over it, so a
    // reader never sees half a list. The folder is made when needed. False with `error`.
    bool save(std::string &error);

    // A path as the list keys it: made plain (`./a/../b.yaml` is `b.yaml`), and relative to the
    // current folder when it lies under it, so every spelling of one file finds its entry.
    static std::string key(const std::string &path);

private:
    std::string path() const { return folder_ + "/" + kFile; }

    std::string folder_;
    std::set<std::string> failed_;
    bool changed_ = false;
};

} // namespace pc::runner
