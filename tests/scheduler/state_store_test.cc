// The state files as the scheduler reads them between requests: whatever
// replaced or rewrote a file since, however soon and at whatever size, is what
// the next read finds.
#include "scheduler/state_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "harness/temp_dir.h"
#include "platform/plist/property_list.h"
#include "scheduler/settings_schema.h"
#include "scheduler/state_files.h"

namespace {

using platform::Value;

// Writes `settings` over the file's own bytes, as an editor that does not
// replace files would.
void rewriteInPlace(const std::string& path, const platform::Dictionary& settings) {
  const std::optional<platform::Bytes> text =
      platform::dataWithPropertyList(Value::dictionary(settings), platform::PropertyListFormat::XML, nullptr);
  ASSERT_TRUE(text);
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(::write(fd, text->data(), text->size()), static_cast<ssize_t>(text->size()));
  ::close(fd);
}

TEST(StateStore, EveryChangeToAFileIsReadWhateverItsSizeAndHoweverSoon) {
  testing_support::TempDir directory;
  const dev_scheduler::StateStore state(directory.path());
  const std::string path = state.path(dev_scheduler::kSettingsFile);
  platform::ErrorRef error;
  std::optional<platform::Dictionary> settings = state.settings(&error);
  ASSERT_TRUE(settings) << error->localizedDescription();
  EXPECT_EQ(*settings, dev_scheduler::defaultSettings());

  // Each change keeps the size: only the digit differs.
  for (const std::int64_t disabled : {1, 0, 1}) {
    platform::Dictionary changed = *settings;
    changed.set(dev_scheduler::kDisabledKey, Value::integer(disabled));
    if (disabled == 0) {
      rewriteInPlace(path, changed);
    } else {
      ASSERT_TRUE(dev_scheduler::writeStateFile(path, Value::dictionary(changed), nullptr));
    }
    settings = state.settings(nullptr);
    ASSERT_TRUE(settings) << disabled;
    EXPECT_EQ(settings->get(dev_scheduler::kDisabledKey), Value::integer(disabled));
  }

  // No longer a dictionary: refused at every read, not only the first.
  ASSERT_TRUE(dev_scheduler::writeStateFile(path, Value::array({}), nullptr));
  for (int read = 0; read < 2; ++read) {
    platform::ErrorRef refused;
    EXPECT_FALSE(state.settings(&refused)) << read;
    EXPECT_TRUE(refused) << read;
  }

  // Removed: the defaults again, written anew.
  ASSERT_EQ(::unlink(path.c_str()), 0);
  settings = state.settings(nullptr);
  ASSERT_TRUE(settings);
  EXPECT_EQ(*settings, dev_scheduler::defaultSettings());
  EXPECT_EQ(::access(path.c_str(), F_OK), 0);
}

}  // namespace
