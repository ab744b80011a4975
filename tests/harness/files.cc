#include "harness/files.h"

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace testing_support {

std::optional<std::string> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

std::string readDescriptor(int fd) {
  std::string out;
  char buffer[65536];
  for (ssize_t n; (n = ::pread(fd, buffer, sizeof buffer, static_cast<off_t>(out.size()))) > 0;) {
    out.append(buffer, static_cast<std::size_t>(n));
  }
  return out;
}

}  // namespace testing_support
