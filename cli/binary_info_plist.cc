// Build step: writes the information property list again in the binary format,
// which the tool embeds, so that start-up reads it with a few offset lookups
// rather than an XML parser. Usage: qhv-binary-info-plist SOURCE OUTPUT.
#include <cstdio>
#include <string>

#include "platform/foundation/file_contents.h"
#include "platform/plist/property_list.h"

namespace {

// `error` when there is one, otherwise `what`.
int fail(const char* path, const platform::ErrorRef& error, const char* what) {
  std::fprintf(stderr, "qhv-binary-info-plist: %s: %s\n", path, error ? error->localizedDescription().c_str() : what);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: qhv-binary-info-plist SOURCE OUTPUT\n");
    return 2;
  }
  platform::Bytes source;
  platform::ErrorRef error;
  if (platform::readFile(argv[1], &source, &error) != platform::FileReadResult::Read) {
    return fail(argv[1], error, "no such file");
  }
  const platform::Value info = platform::propertyListWithData(source, nullptr, &error);
  if (!info.asDictionary()) return fail(argv[1], error, "not a dictionary");
  const auto binary = platform::dataWithPropertyList(info, platform::PropertyListFormat::Binary, &error);
  if (!binary) return fail(argv[2], error, "cannot be written");
  std::FILE* output = std::fopen(argv[2], "wb");
  const bool written = output && std::fwrite(binary->data(), 1, binary->size(), output) == binary->size();
  if (!output || std::fclose(output) != 0 || !written) {
    std::perror(argv[2]);
    return 1;
  }
  return 0;
}
