#include "loader.hpp"

#include "json_loader.hpp"
#include "yaml_loader.hpp"

namespace pc::load {

std::string LoadError::text() const {
    std::string out = file;
    if (line) out += ":" + std::to_string(line) + ":" + std::to_string(column);
    return out + ": " + message;
}

namespace {

bool ends_with(const std::string &s, std::string_view suffix) {
    return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

std::unique_ptr<DocumentReader> open_document(const std::string &path, LoadError &error) {
    if (ends_with(path, ".jsonl")) return open_json_lines(path, error);
    if (ends_with(path, ".json")) return open_json(path, error);
    auto reader = std::make_unique<yaml::Reader>();
    if (!reader->open_file(path, error)) return nullptr;
    return reader;
}

} // namespace pc::load
