#include "harness/files.h"

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

}  // namespace testing_support
