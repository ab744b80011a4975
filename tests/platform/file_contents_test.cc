#include "platform/file_contents.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "harness/temp_dir.h"

namespace platform {
namespace {

// A file read whole, a missing one and a directory are pinned by whole runs of "settings import".
TEST(ReadFile, AFileBeneathAFileIsMissingAndTheCapHolds) {
  testing_support::TempDir dir;
  dir.write("settings.plist", "contents");
  Bytes contents;
  ErrorRef error;
  EXPECT_EQ(readFile(dir.file("settings.plist/below"), &contents, &error), FileReadResult::Missing);
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
