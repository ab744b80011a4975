// The set-up of each sink, called by LKSLogInit, and its undoing for tests.
#pragma once

namespace lks_log_internal {

// Opens the log file "<category>.log" in LKSLogGetParentPath(), creating the
// directory; a failure is reported and leaves the file sink writing nothing.
void openLogFile(const char* category);
// Closes the log file and forgets the category; later entries are dropped.
void resetLogFileForTesting();

// Makes the legacy-log client whose facility is `subsystem`.
void openLegacyClient(const char* subsystem);
// Drops the legacy-log client; later legacy entries are dropped.
void resetLegacyClientForTesting();

}  // namespace lks_log_internal
