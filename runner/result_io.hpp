// A file's results as text, to carry them from the process that ran the file to the one that
// reports it: its steps and findings line by line as they are made (so that a process the library
// ends has still passed on what it did), then the file's totals, ended by a line that marks the
// results complete. A format only planecheck writes and reads.
#pragma once

#include "run.hpp"

#include <string>

namespace pc::runner {

std::string saved_name(const std::string &name);
std::string saved_step(const StepRecord &step);
std::string saved_finding(const Finding &finding);
// The totals and the finding lines; `late` of them came after the run (the writer's own problems).
std::string saved_totals(const FileResult &result, size_t late);

// Reads what the savers wrote into `result` (whose path is set): the steps and findings, and the
// totals when they are there. False when a line cannot be read; what came before it is kept.
// `complete` tells that the totals were read, `late` how many finding lines came after the run.
bool load_saved(const std::string &text, FileResult &result, bool &complete, size_t &late);

// Writes each step and finding of a run to a descriptor as it is made, unbuffered.
class SavingObserver : public RunObserver {
public:
    explicit SavingObserver(int fd) : fd_(fd) {}
    void file_start(const FileResult &file) override;
    void finding(const FileResult &file, const Finding &finding) override;
    void step(const FileResult &file, const StepRecord &step) override;
    bool ok() const { return ok_; }
    int error() const { return error_; } // the errno of the write that failed

private:
    void put(const std::string &text);
    int fd_;
    bool ok_ = true;
    int error_ = 0;
};

bool write_all(int fd, const std::string &text);

} // namespace pc::runner
