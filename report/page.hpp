// The report page: the page's own files (page/report.html, .css, .js, embedded into the command
// when it is built) with the run's data put inside, as one self-contained HTML file.
#pragma once

#include "run_model.hpp"

#include <string>
#include <string_view>

namespace pc::report {

// The embedded page files, generated from page/ at build time.
namespace page {
extern const std::string_view kHtml, kCss, kJs;
}

// The run as the JSON the page reads (see page/report.js for its shape).
std::string run_json(const Run &run, const std::string &made_at);

// The whole page; `coverage` is coverage_json's text, or empty when the run had none.
std::string build_page(const Run &run, const std::string &coverage, const std::string &made_at);

// Writes the page to `path`; false (errno set) when it cannot.
bool write_page(const std::string &path, const std::string &page);

} // namespace pc::report
