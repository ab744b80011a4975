// Reading files whole in tests.
#pragma once

#include <optional>
#include <string>

namespace testing_support {

// The contents of the file at `path`; nullopt when it cannot be opened.
std::optional<std::string> readFile(const std::string& path);

// All that the open file `fd` holds, from its start whatever its offset.
std::string readDescriptor(int fd);

}  // namespace testing_support
