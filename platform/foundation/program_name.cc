#include "platform/foundation/program_name.h"

#include <errno.h>

namespace platform {

// The C library keeps the base name of argv[0] from before main.
const char* getprogname() { return program_invocation_short_name; }

}  // namespace platform
