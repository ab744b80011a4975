// Hooks for the facility's own tests; the tool never calls them.
#pragma once

// Returns the facility to its state before LKSLogInit: the file is closed and
// no system log is chosen.
void LKSLogResetForTesting();
