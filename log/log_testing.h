// Hooks for the facility's own tests; the tool never calls them.
#pragma once

#include <cstdint>

// Returns the facility to its state before LKSLogInit: the file is closed, no
// system log is chosen, the rotation threshold is the tool's.
void LKSLogResetForTesting();

// Rotates the log file from `bytes` on instead of 10,000,000, so that tests can
// rotate often without writing tens of megabytes.
void LKSLogSetRotationThresholdForTesting(std::uint64_t bytes);
