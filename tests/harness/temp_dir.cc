#include "harness/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "harness/files.h"

namespace testing_support {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/qhv-test-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void TempDir::write(const std::string& name, const std::string& contents) const {
  std::ofstream(file(name), std::ios::binary) << contents;
}

std::string TempDir::read(const std::string& name) const { return readFile(file(name)).value_or(""); }

}  // namespace testing_support
