// The requests file as records are appended: the whole array, written as one
// XML property list would be, and what another writer left taken up.
#include "scheduler/request_record.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "harness/files.h"
#include "harness/temp_dir.h"
#include "platform/plist/property_list.h"
#include "scheduler/state_files.h"

namespace {

using platform::Value;

dev_scheduler::ReceivedRequest requestFor(std::int64_t message) {
  dev_scheduler::ReceivedRequest request;
  request.message = message;
  request.payload = Value::dictionary({{"Interval", Value::integer(message * 60)}});
  request.peer.uid = 501;
  request.peer.pid = static_cast<pid_t>(1000 + message);
  return request;
}

// The file's bytes, and the same records written at once.
std::pair<std::string, std::string> writtenAndExpected(const std::string& path, const platform::Array& records) {
  const std::optional<platform::Bytes> whole =
      platform::dataWithPropertyList(Value::array(records), platform::PropertyListFormat::XML, nullptr);
  return {testing_support::readFile(path).value_or(""), std::string(whole->begin(), whole->end())};
}

TEST(RequestRecord, EachAppendLeavesTheWholeArrayAsOneWriteWouldAndTakesUpAnotherWritersFile) {
  testing_support::TempDir state;
  const std::string path = state.file("requests.plist");
  dev_scheduler::RequestRecord record(path);
  platform::Array records;
  for (std::int64_t message = 1; message <= 3; ++message) {
    ASSERT_TRUE(record.append(requestFor(message), nullptr)) << message;
    const Value stored = dev_scheduler::readStateFile(path, nullptr, nullptr);
    ASSERT_NE(stored.asArray(), nullptr) << message;
    records.push_back(stored.asArray()->items().back());
    const auto [written, expected] = writtenAndExpected(path, records);
    EXPECT_EQ(written, expected) << message;
  }
  EXPECT_EQ(records[2].asDictionary()->get(dev_scheduler::kRecordPeerPIDKey), Value::integer(1003));

  // Replaced from outside: what is there now is appended to, not what was kept.
  const platform::Array foreign = {Value::dictionary({{"message", Value::integer(9)}})};
  ASSERT_TRUE(dev_scheduler::writeStateFile(path, Value::array(foreign), nullptr));
  ASSERT_TRUE(record.append(requestFor(4), nullptr));
  const Value stored = dev_scheduler::readStateFile(path, nullptr, nullptr);
  ASSERT_NE(stored.asArray(), nullptr);
  ASSERT_EQ(stored.asArray()->size(), 2u);
  EXPECT_EQ((*stored.asArray())[0], foreign[0]);
  EXPECT_EQ((*stored.asArray())[1].asDictionary()->get(dev_scheduler::kRecordPeerPIDKey), Value::integer(1004));

  // Rewritten in place by another writer: the same file, other contents, which are appended to.
  const platform::Array rewritten = {Value::integer(7), Value::integer(8), Value::integer(9)};
  const std::optional<platform::Bytes> text =
      platform::dataWithPropertyList(Value::array(rewritten), platform::PropertyListFormat::XML, nullptr);
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::write(fd, text->data(), text->size()), static_cast<ssize_t>(text->size()));
  ::close(fd);
  ASSERT_TRUE(record.append(requestFor(5), nullptr));
  const Value taken = dev_scheduler::readStateFile(path, nullptr, nullptr);
  ASSERT_NE(taken.asArray(), nullptr);
  ASSERT_EQ(taken.asArray()->size(), 4u);
  EXPECT_EQ((*taken.asArray())[2], Value::integer(9));

  // Removed: made anew with the next record alone, not written into the file that is gone.
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_TRUE(record.append(requestFor(6), nullptr));
  const Value made = dev_scheduler::readStateFile(path, nullptr, nullptr);
  ASSERT_NE(made.asArray(), nullptr);
  ASSERT_EQ(made.asArray()->size(), 1u);
  EXPECT_EQ((*made.asArray())[0].asDictionary()->get(dev_scheduler::kRecordPeerPIDKey), Value::integer(1006));
}

}  // namespace
