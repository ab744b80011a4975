// What the packaging tests share: the shipped files in the source tree, the
// build directory being packaged, the version of the information property
// list, and the system programs the tests run.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "harness/files.h"
#include "harness/tool_run.h"
#include "platform/property_list.h"

namespace shipping {

// A file of the source tree, by its path from the top.
inline std::string sourceFile(const std::string& relative) {
  return std::string(QHV_SOURCE_DIR) + "/" + relative;
}

// The build directory these tests were built in, which they install and package.
inline std::string buildDirectory() { return QHV_BINARY_DIR; }

// The path of `program` in the directories of the harness's PATH; empty when it is not installed.
inline std::string findProgram(const std::string& program) {
  for (const char* directory : {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin", "/usr/bin", "/sbin", "/bin"}) {
    const std::string path = std::string(directory) + "/" + program;
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return "";
}

// A string entry of the tool's information property list; empty when absent.
inline std::string infoPlistString(const std::string& key) {
  const std::optional<std::string> text = testing_support::readFile(sourceFile("cli/Info.plist"));
  if (!text) return "";
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text->data());
  const platform::Value plist = platform::propertyListWithData(std::span(bytes, text->size()), nullptr, nullptr);
  const platform::Dictionary* dictionary = plist.asDictionary();
  const std::string* value = dictionary ? dictionary->get(key).asString() : nullptr;
  return value ? *value : "";
}

// How a run ended and what it wrote, for failure messages.
inline std::string describe(const testing_support::RunResult& run) {
  return "exit status " + std::to_string(run.exitStatus) + (run.signal ? ", signal " + std::to_string(run.signal) : "") +
         "\nstdout: " + run.out + "\nstderr: " + run.err;
}

// The decompressed contents of a gzip file; nullopt when gzip cannot read it.
inline std::optional<std::string> gunzip(const std::string& path) {
  const testing_support::RunResult run = testing_support::runProgram(findProgram("gzip"), {"-dc", path});
  if (run.exitStatus != 0) return std::nullopt;
  return run.out;
}

}  // namespace shipping
