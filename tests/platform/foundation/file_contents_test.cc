#include "platform/foundation/file_contents.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include "harness/temp_dir.h"

namespace platform {
namespace {

// A file read whole and a directory are pinned by whole runs of "settings import".
TEST(ReadFile, APathThatReachesNoFileIsMissing) {
  testing_support::TempDir dir;
  dir.write("settings.plist", "contents");
  ASSERT_EQ(symlink("loop", dir.file("loop").c_str()), 0);
  ASSERT_EQ(symlink("nothing", dir.file("dangling").c_str()), 0);
  std::string longWay = dir.path();
  while (longWay.size() < PATH_MAX) longWay += "/.";
  const std::string kNowhere[] = {
      dir.file("settings.plist/below"),           // a file where a folder should be
      dir.file("absent/settings.plist"),          // a folder missing on the way
      dir.file("dangling"),                       // a link to nothing
      dir.file("loop"),                           // a link to itself
      dir.file("loop/settings.plist"),            // a loop on the way
      dir.file(std::string(NAME_MAX + 1, 'x')),   // a name too long
      longWay + "/settings.plist",                // a path too long to the file
  };
  for (const std::string& path : kNowhere) {
    Bytes contents;
    ErrorRef error;
    EXPECT_EQ(readFile(path, &contents, &error), FileReadResult::Missing) << path.substr(0, 80);
  }
}

TEST(ReadFile, TheCapHolds) {
  Bytes contents;
  ErrorRef error;
  // A device that never ends is cut off at the cap.
  ASSERT_EQ(readFile("/dev/zero", &contents, &error), FileReadResult::Failed);
  EXPECT_EQ(error->code, EFBIG);
  // The cap holds for what is read, not for what a file's size claims.
  for (const std::size_t cap : {9, 10}) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(write(fds[1], "0123456789", 10), 10);
    close(fds[1]);
    EXPECT_EQ(readAll(fds[0], cap, &contents), cap == 10 ? 0 : EFBIG) << cap;
    close(fds[0]);
  }
}

}  // namespace
}  // namespace platform
