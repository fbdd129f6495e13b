// JSON and JSON Lines scenario files, parsed with simdjson's on-demand parser into the same value
// model, with the same lines and columns, as the YAML reader gives.
#pragma once

#include "loader.hpp"

#include <memory>

namespace pc::load {

// A ".json" file: one document, read whole into memory, its top-level mapping and the steps
// sequence walked one value at a time.
std::unique_ptr<DocumentReader> open_json(const std::string &path, LoadError &error);

// A ".jsonl" file: an optional first line {"name": ..., "config": {...}}, then one step object
// per line. Read through a window of lines, so memory stays flat whatever the file's length.
std::unique_ptr<DocumentReader> open_json_lines(const std::string &path, LoadError &error);

} // namespace pc::load
