#include "platform/file_contents.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "harness/temp_dir.h"

namespace platform {
namespace {

using testing_support::TempDir;

TEST(ReadFile, ReadsMissesAndFails) {
  TempDir dir;
  dir.write("settings.plist", "contents");
  Bytes contents;
  ErrorRef error;
  ASSERT_EQ(readFile(dir.file("settings.plist"), &contents, &error), FileReadResult::Read);
  EXPECT_EQ(std::string(contents.begin(), contents.end()), "contents");

  EXPECT_EQ(readFile(dir.file("absent.plist"), &contents, &error), FileReadResult::Missing);
  EXPECT_EQ(readFile(dir.file("settings.plist/below"), &contents, &error), FileReadResult::Missing);

  // A directory exists but cannot be read as a file.
  ASSERT_EQ(readFile(dir.path(), &contents, &error), FileReadResult::Failed);
  EXPECT_EQ(error->code, EISDIR);
  EXPECT_NE(error->localizedDescription().find("couldn\u2019t be read: Is a directory."), std::string::npos);
}

TEST(ReadFile, ADeviceThatNeverEndsIsCutOff) {
  Bytes contents;
  ErrorRef error;
  ASSERT_EQ(readFile("/dev/zero", &contents, &error), FileReadResult::Failed);
  EXPECT_EQ(error->code, EFBIG);
}

TEST(ReadAll, TheCapHoldsForWhatIsRead) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "0123456789", 10), 10);
  close(fds[1]);
  Bytes contents;
  EXPECT_EQ(readAll(fds[0], 9, &contents), EFBIG);
  close(fds[0]);

  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "0123456789", 10), 10);
  close(fds[1]);
  EXPECT_EQ(readAll(fds[0], 10, &contents), 0);
  EXPECT_EQ(contents.size(), 10u);
  close(fds[0]);
}

}  // namespace
}  // namespace platform
