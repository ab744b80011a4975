// The name the running program was started under.
#pragma once

namespace platform {

// The base name of the program's first command-line argument, as the program
// was started (through a link, the link's name). Never null.
const char* getprogname();

}  // namespace platform
