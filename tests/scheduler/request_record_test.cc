// The requests file as records are appended: the whole array, written as one
// XML property list would be, and what another writer left taken up.
#include "scheduler/request_record.h"

#include <gtest/gtest.h>

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
}

}  // namespace
