// planecheck report: the HTML report of one or more event streams, and the same page at the end
// of `planecheck run --html`.
#pragma once

#include <string>
#include <vector>

namespace pc::report {

struct ReportRequest {
    std::vector<std::string> events;   // event files ("-": standard input)
    std::string html;                  // where the page goes; "" for none
    std::vector<std::string> coverage; // coverage reports; empty: those the runs wrote, if any
    std::string junit = {};            // the merged JUnit report; "" for none
};

// Reads, writes the page and the merged JUnit, prints problems as "FILE:LINE: message"; returns the
// exit status the page shows (0 passed, 1 failed, also for a merge of shards that lacks a shard or
// a file; 2 invalid), or 2 when an events or coverage file could not be read or was given twice
// (the page still shows the rest) or the page could not be written.
int report_command(const ReportRequest &request);

} // namespace pc::report
