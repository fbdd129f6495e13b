#include "last_failed.hpp"

#include "event_stream.hpp"

#include "wire_text.hpp"

#include <fmt/format.h>
#include <simdjson.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace pc::runner {
namespace fs = std::filesystem;

namespace {

// The folder holds what runs keep between them, never what a project commits.
bool make_folder(const std::string &folder, std::string &error) {
    if (mkdir(folder.c_str(), 0777) == 0) {
        std::ofstream(folder + "/.gitignore") << "# made by planecheck run: what it keeps between runs\n*\n";
        return true;
    }
    if (errno == EEXIST) return true;
    error = fmt::format("cannot make {}: {}", folder, std::strerror(errno));
    return false;
}

} // namespace

std::string LastFailed::key(const std::string &path) {
    fs::path plain = fs::path(path).lexically_normal();
    std::error_code ec;
    fs::path here = fs::current_path(ec);
    if (!ec && plain.is_absolute()) {
        fs::path relative = plain.lexically_relative(here);
        if (!relative.empty() && *relative.begin() != "..") plain = relative;
    }
    return plain.string();
}

bool LastFailed::load(std::string &error) {
    failed_.clear();
    changed_ = false;
    std::ifstream in(path(), std::ios::binary);
    if (!in) return true; // no run kept a list here yet
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    simdjson::dom::parser parser;
    simdjson::dom::object entries;
    if (parser.parse(text).get(entries) != simdjson::SUCCESS) {
        error = fmt::format("{} is not a JSON object of file names; it is started afresh", path());
        changed_ = true; // written anew by the next save, whatever the run changes
        return false;
    }
    for (auto [name, value] : entries) {
        bool failed = false;
        if (value.get(failed) == simdjson::SUCCESS && failed) failed_.insert(from_wire(name));
    }
    return true;
}

bool LastFailed::clear() {
    changed_ = !failed_.empty();
    failed_.clear();
    return unlink(path().c_str()) == 0 || errno == ENOENT;
}

void LastFailed::ran(const std::string &path, bool failed) {
    std::string k = key(path);
    bool was = failed_.count(k) != 0;
    if (failed == was) return;
    if (failed) failed_.insert(k);
    else failed_.erase(k);
    changed_ = true;
}

bool LastFailed::save(std::string &error) {
    if (!changed_) return true;
    if (!make_folder(folder_, error)) return false;
    std::string text = "{";
    for (const std::string &file : failed_) text += fmt::format("{}\n  {}: true", text.size() > 1 ? "," : "", wire_text(file, WireForm::json));
    text += failed_.empty() ? "}\n" : "\n}\n";
    std::string temporary = path() + ".XXXXXX";
    int fd = mkstemp(temporary.data());
    bool written = fd >= 0 && fchmod(fd, 0644) == 0 && write_all(fd, text);
    if (fd >= 0 && ::close(fd) != 0) written = false;
    if (written && std::rename(temporary.c_str(), path().c_str()) == 0) {
        changed_ = false;
        return true;
    }
    error = fmt::format("cannot write {}: {}", path(), std::strerror(errno));
    if (fd >= 0) unlink(temporary.c_str());
    return false;
}

} // namespace pc::runner
