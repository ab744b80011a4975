// The `version` command.
#pragma once

// Prints the short version string and, in parentheses, the build number from the
// main bundle's information dictionary ("5.2.2 (219)"). Ignores its arguments;
// returns 0.
int version_cmd(int argc, char** argv);
