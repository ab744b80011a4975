// LKSMessagerClient: the request it builds, the replies it decodes, and the
// errors of the messager domain it makes on the way.
#include "messaging/messager_client.h"

#include <gtest/gtest.h>

#include <thread>

#include "authorization/authorization_manager.h"
#include "authorization/fake_authorization_services.h"
#include "errors/error_domains.h"
#include "harness/installed.h"
#include "harness/shared_arrays.h"
#include "platform/plist/keyed_archive.h"
#include "platform/plist/property_list.h"

namespace {

using namespace authorization_testing;

// A delegate that names the same rights for every message.
class FixedRights : public LKSMessagerClientDelegate {
 public:
  explicit FixedRights(Array rights) : rights_(std::move(rights)) {}
  Array messagerAuthorizationRightsForMessage(LKSMessagerClient&, std::int64_t) override { return rights_; }

 private:
  Array rights_;
};

Bytes binary(const Value& value) { return *dataWithPropertyList(value, PropertyListFormat::Binary, nullptr); }
Bytes bytes(const std::string& text) { return Bytes(text.begin(), text.end()); }

class MessagerClientTest : public ::testing::Test {
 protected:
  ~MessagerClientTest() override { LKSAuthorizationManager::sharedManager().invalidate(); }
  std::shared_ptr<LKSMessagerClient> client(std::shared_ptr<LKSMessagerClientDelegate> delegate) {
    return LKSMessagerClient::initWithServiceName("com.example.messager-test", delegate);
  }

  FakeAuthorizationServices fake_;
  const testing_support::Installed<AuthorizationServices> installed_{&fake_};
  std::shared_ptr<LKSMessagerClientDelegate> noRights_ = std::make_shared<FixedRights>(Array{});
  std::shared_ptr<LKSMessagerClientDelegate> rights_ =
      std::make_shared<FixedRights>(Array{Value::string("right.a"), Value::string("right.b")});
  std::shared_ptr<LKSMessagerClient> plain_ = client(noRights_), authorized_ = client(rights_);
};

TEST_F(MessagerClientTest, BuildsTheRequest) {
  EXPECT_EQ(plain_->XPCMessageForMessage(15, {}, nullptr), (Dictionary{{"message", Value::integer(15)}}));
  // An empty payload is still a payload, as a binary property list.
  EXPECT_EQ(plain_->XPCMessageForMessage(2, Value::dictionary({}), nullptr),
            (Dictionary{{"message", Value::integer(2)}, {"payload", Value::data(binary(Value::dictionary({})))}}));
  // A client whose delegate is gone asks for no rights.
  auto delegate = std::make_shared<FixedRights>(Array{Value::string("right.a")});
  auto orphan = client(delegate);
  delegate.reset();
  EXPECT_EQ(orphan->XPCMessageForMessage(11, {}, nullptr), (Dictionary{{"message", Value::integer(11)}}));
  EXPECT_TRUE(fake_.calls.empty()) << "no rights, no authorization";
}

TEST_F(MessagerClientTest, ARequestThatCannotBeBuiltIsCodeTwoOrZeroWithItsCause) {
  // An unserializable payload fails before anybody is asked for rights.
  const Value payload = Value::dictionary({{"cause", Value::error(Error::make("d", 1))}});
  ErrorRef error;
  EXPECT_FALSE(authorized_->XPCMessageForMessage(11, payload, &error));
  ASSERT_TRUE(error && error->underlyingError());
  EXPECT_EQ(*error, *Error::make(LKSMessagerErrorDomain, LKSMessagerErrorSerializeMessage,
                                 {{"message", Value::integer(11)}, {"payload", Value::string(payload.description())},
                                  {NSUnderlyingErrorKey, Value::error(error->underlyingError())}}));
  EXPECT_TRUE(fake_.calls.empty());

  fake_.answers["create"] = errAuthorizationInternal;
  EXPECT_FALSE(authorized_->XPCMessageForMessage(21, {}, &error));
  ASSERT_TRUE(error && error->underlyingError());
  EXPECT_EQ(error->code, LKSMessagerErrorAuthorize);
  EXPECT_EQ(error->userInfo.get("message"), Value::integer(21));
  EXPECT_EQ(error->underlyingError()->domain, LKSAuthorizationErrorDomain);

  // Sent asynchronously, such a request is answered at once, on the calling thread.
  std::thread::id answeredOn;
  authorized_->sendMessage(2, {}, SerialQueue::create("q"), [&](const Value& reply, const ErrorRef& failure) {
    answeredOn = std::this_thread::get_id();
    EXPECT_FALSE(reply);
    EXPECT_EQ(failure->code, LKSMessagerErrorAuthorize);
  });
  EXPECT_EQ(answeredOn, std::this_thread::get_id());
}

TEST_F(MessagerClientTest, DecodesEveryKindOfReply) {
  const ErrorRef carried = Error::make("com.larkspan.quillhaven", 5, {{"key", Value::string("Bogus")}});
  const auto reply = [](const char* key, Bytes data) { return XPCObject::dictionary({{key, Value::data(data)}}); };
  const struct {
    const char* why;
    XPCObject reply;
    Value value;        // the reply value, or none
    std::int64_t code;  // otherwise the messager code, or -1 for the carried error
  } rows[] = {
      {"no payload", XPCObject::dictionary({}), Value::dictionary({}), 0},
      {"a payload in any format, any root", reply("payload", bytes("(a, b)")),
       Value::array({Value::string("a"), Value::string("b")}), 0},
      {"the connection is invalid", XPC_ERROR_CONNECTION_INVALID, {}, LKSMessagerErrorServiceUnavailable},
      {"the service went away", XPC_ERROR_CONNECTION_INTERRUPTED, {}, LKSMessagerErrorServiceDisappeared},
      {"a payload that does not parse", reply("payload", bytes("\x01\x02 junk")), {}, LKSMessagerErrorDeserializeReply},
      {"a payload of 2^60 paths to one array", reply("payload", testing_support::doubledArraysDocument(60)), {}, LKSMessagerErrorDeserializeReply},
      {"an error that does not unarchive", reply("error", binary(Value::dictionary({}))), {}, LKSMessagerErrorUnarchiveReplyError},
      {"a carried error wins over the payload",
       XPCObject::dictionary({{"error", Value::data(*archivedDataWithRootError(carried, nullptr))},
                              {"payload", Value::data(binary(Value::dictionary({})))}}),
       {}, -1},
  };
  for (const auto& row : rows) {
    ErrorRef error;
    EXPECT_EQ(plain_->replyForMessage(9, row.reply, &error), row.value) << row.why;
    ASSERT_EQ(!error, !!row.value) << row.why;
    if (!error) continue;
    if (row.code < 0) {
      EXPECT_EQ(*error, *carried);
      continue;
    }
    EXPECT_EQ(error->domain, LKSMessagerErrorDomain) << row.why;
    EXPECT_EQ(error->code, row.code) << row.why;
    EXPECT_EQ(error->userInfo.get("message"), Value::integer(9)) << row.why;
    // The connection's errors name the service; the others carry the decoder's error as their cause.
    EXPECT_EQ(error->userInfo.get("service"), row.reply.isError() ? Value::string(plain_->serviceName()) : Value())
        << row.why;
    EXPECT_EQ(!error->underlyingError(), row.reply.isError()) << row.why;
  }
}

}  // namespace
