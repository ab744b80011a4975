// What the shipping tests share: the shipped source files, the system programs
// they run, and how an installation must look.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>

#include "harness/files.h"
#include "harness/tool_run.h"

namespace shipping {

// A file of the source tree, by its path from the top.
inline std::string sourceFile(const std::string& relative) { return std::string(QHV_SOURCE_DIR) + "/" + relative; }

// The path of `program` in /usr/bin or /bin; empty when it is not installed.
inline std::string findProgram(const std::string& program) {
  for (const std::string& path : {"/usr/bin/" + program, "/bin/" + program}) {
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return "";
}

// How a run ended and what it wrote, for failure messages.
inline std::string describe(const testing_support::RunResult& run) {
  return "exit status " + std::to_string(run.exitStatus) + "\nstdout: " + run.out + "\nstderr: " + run.err;
}

// The files below `root`, by their paths from it.
inline std::set<std::string> filesUnder(const std::string& root) {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_directory()) files.insert(std::filesystem::relative(entry.path(), root));
  }
  return files;
}

// Checks the files under `root`: exactly the tool, its manual page compressed
// as Debian keeps manual pages and its completions for bash, zsh and fish,
// under `prefix`, the page and the completions those of the source tree, the
// tool stripped of its debug information.
inline void expectInstallation(const std::string& root, const std::string& prefix) {
  const std::map<std::string, std::string> completions = {
      {"share/bash-completion/completions/qhvctl", "completion/qhvctl.bash"},
      {"share/zsh/vendor-completions/_qhvctl", "completion/qhvctl.zsh"},
      {"share/fish/vendor_completions.d/qhvctl.fish", "completion/qhvctl.fish"}};
  std::set<std::string> expected = {prefix + "bin/qhvctl", prefix + "share/man/man8/qhvctl.8.gz"};
  for (const auto& [installed, source] : completions) {
    expected.insert(prefix + installed);
    EXPECT_EQ(testing_support::readFile(root + "/" + prefix + installed), testing_support::readFile(sourceFile(source)))
        << installed;
  }
  EXPECT_EQ(filesUnder(root), expected);
  EXPECT_EQ(std::filesystem::status(root + "/" + prefix + "bin/qhvctl").permissions(), std::filesystem::perms(0755));
  EXPECT_EQ(testing_support::readFile(root + "/" + prefix + "bin/qhvctl")->find(".debug_info"), std::string::npos)
      << "the installed tool carries its debug information";
  const testing_support::RunResult page =
      testing_support::runProgram("/bin/gzip", {"-dc", root + "/" + prefix + "share/man/man8/qhvctl.8.gz"});
  EXPECT_EQ(page.out, testing_support::readFile(sourceFile("doc/qhvctl.8"))) << describe(page);
}

}  // namespace shipping
