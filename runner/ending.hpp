// Every end of the process keeps what the run produced: on exit (the library's unknown-table
// exit), on abort (the batch and validation assertions) and on a stop signal, the recorder, the
// step's pending output and standard output and error are written out first.
#pragma once

namespace pc::runner::ending {

// Installs the exit, abort and signal (SIGINT, SIGTERM, SIGHUP; SIGPIPE) handlers. A stop signal is acted
// on at the next safe point (after a recorder record, between steps); a second one ends at once.
void install();
// The run in progress registers what it still holds for the output (null: nothing).
void set_pending_output(void (*write_pending)());
// Writes the recorder, the pending output, standard output and error.
void flush_all();
// The stop signal that arrived, or 0.
int stop_signal();
// At a safe point: when a stop signal arrived, writes everything out and ends with that signal.
void stop_if_requested();

} // namespace pc::runner::ending
