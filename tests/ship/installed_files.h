// What an installation of the tool consists of: the files under an installation
// root, and how each must look, shared by the install and the package tests.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "harness/files.h"
#include "ship/shipping.h"

namespace shipping {

// Every file under `root` that is not a directory, by its path from `root`.
inline std::vector<std::string> filesUnder(const std::string& root) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_directory()) files.push_back(std::filesystem::relative(entry.path(), root).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// The files installed under a prefix: the tool, its manual page compressed as
// Debian keeps manual pages, and its bash completion named after the command.
inline std::vector<std::string> installedFiles(const std::string& prefix) {
  return {prefix + "bin/qhvctl", prefix + "share/bash-completion/completions/qhvctl",
          prefix + "share/man/man8/qhvctl.8.gz"};
}

// Checks the files installed under `root` + `prefix`: exactly those of
// installedFiles, the tool executable, the page and the completion the ones of
// the source tree.
inline void expectInstallation(const std::string& root, const std::string& prefix) {
  EXPECT_EQ(filesUnder(root), installedFiles(prefix));
  struct stat tool {};
  ASSERT_EQ(::stat((root + "/" + prefix + "bin/qhvctl").c_str(), &tool), 0);
  EXPECT_EQ(tool.st_mode & 0777, 0755U);
  EXPECT_EQ(gunzip(root + "/" + prefix + "share/man/man8/qhvctl.8.gz"),
            testing_support::readFile(sourceFile("doc/qhvctl.8")))
      << "the installed manual page is not doc/qhvctl.8";
  EXPECT_EQ(testing_support::readFile(root + "/" + prefix + "share/bash-completion/completions/qhvctl"),
            testing_support::readFile(sourceFile("completion/qhvctl.bash")))
      << "the installed completion is not completion/qhvctl.bash";
}

}  // namespace shipping
