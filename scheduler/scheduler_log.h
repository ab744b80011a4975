// What the scheduler reports about itself: one line per event on standard
// error (the terminal in the foreground, scheduler.log in the background).
// It never writes the tool's own log.
#pragma once

namespace dev_scheduler {

// Writes "<UTC date> <text>" and a line end in one write.
void logLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Writes the lines to the open descriptor `fd` from now on, instead of standard
// error: a scheduler that serves inside another program keeps them apart from
// that program's own output.
void setLogDescriptor(int fd);

}  // namespace dev_scheduler
