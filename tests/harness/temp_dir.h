// A private directory for one test, removed with everything in it at the end.
#pragma once

#include <string>

namespace testing_support {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() joined with a relative name.
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  void write(const std::string& name, const std::string& contents) const;
  std::string read(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace testing_support
