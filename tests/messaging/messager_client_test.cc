// LKSMessagerClient: the request it builds, the replies it decodes, and the
// errors of the messager domain it makes on the way.
#include "messaging/messager_client.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "authorization/authorization_manager.h"
#include "authorization/fake_authorization_services.h"
#include "errors/error_domains.h"
#include "harness/test_service.h"
#include "platform/keyed_archive.h"
#include "platform/property_list.h"
#include "support/queue.h"

namespace {

using authorization_testing::FakeAuthorizationServices;
using authorization_testing::Operation;
using platform::Array;
using platform::Bytes;
using platform::Dictionary;
using platform::ErrorRef;
using platform::Value;
using platform::XPCObject;
using testing_support::PrivateServiceDirectory;
using testing_support::TestService;

constexpr const char* kService = "com.example.messager-test";

// A delegate that names the same rights for every message.
class FixedRights : public LKSMessagerClientDelegate {
 public:
  explicit FixedRights(Array rights) : rights_(std::move(rights)) {}
  Array messagerAuthorizationRightsForMessage(LKSMessagerClient&, std::int64_t) override { return rights_; }

 private:
  Array rights_;
};

Value parsed(const Value& data) { return platform::propertyListWithData(*data.asData(), nullptr, nullptr); }

Bytes archive(const ErrorRef& error) { return *platform::archivedDataWithRootError(error, nullptr); }

class MessagerClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake_.rightStatus["right.a"] = platform::errAuthorizationSuccess;
    platform::setAuthorizationServicesForTesting(&fake_);
  }
  void TearDown() override {
    LKSAuthorizationManager::sharedManager().invalidate();
    platform::setAuthorizationServicesForTesting(nullptr);
  }

  std::shared_ptr<LKSMessagerClient> client(std::shared_ptr<LKSMessagerClientDelegate> delegate) {
    delegates_.push_back(delegate);
    return LKSMessagerClient::initWithServiceName(kService, delegate);
  }

  FakeAuthorizationServices fake_;
  std::vector<std::shared_ptr<LKSMessagerClientDelegate>> delegates_;
  std::shared_ptr<LKSMessagerClientDelegate> noRights_ = std::make_shared<FixedRights>(Array{});
  std::shared_ptr<LKSMessagerClientDelegate> rightA_ =
      std::make_shared<FixedRights>(Array{Value::string("right.a"), Value::string("right.b")});
};

TEST_F(MessagerClientTest, RequestWithoutPayloadOrRights) {
  ErrorRef error;
  const auto request = client(noRights_)->XPCMessageForMessage(15, {}, &error);
  ASSERT_TRUE(request);
  EXPECT_EQ(*request, (Dictionary{{"message", Value::integer(15)}}));
  EXPECT_TRUE(fake_.calls.empty()) << "no rights, no authorization";
}

TEST_F(MessagerClientTest, AnEmptyPayloadIsStillAPayload) {
  const auto request = client(noRights_)->XPCMessageForMessage(2, Value::dictionary({}), nullptr);
  ASSERT_TRUE(request);
  const Value& payload = request->get("payload");
  ASSERT_TRUE(payload.asData());
  EXPECT_EQ(std::string(payload.asData()->begin(), payload.asData()->begin() + 8), "bplist00");
  EXPECT_EQ(parsed(payload), Value::dictionary({}));
}

TEST_F(MessagerClientTest, RightsBringTheExternalForm) {
  const Value payload = Value::dictionary({{"Enabled", Value::boolean(false)}});
  const auto request = client(rightA_)->XPCMessageForMessage(11, payload, nullptr);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->get("message"), Value::integer(11));
  EXPECT_EQ(parsed(request->get("payload")), payload);
  const Bytes expected(std::begin(fake_.externalForm.bytes), std::end(fake_.externalForm.bytes));
  EXPECT_EQ(request->get("auth"), Value::data(expected));
  EXPECT_EQ(fake_.rightsAskedFor(), (std::vector<std::string>{"right.a"}));
}

TEST_F(MessagerClientTest, AGoneDelegateNeedsNoRights) {
  auto delegate = std::make_shared<FixedRights>(Array{Value::string("right.a")});
  auto messager = LKSMessagerClient::initWithServiceName(kService, delegate);
  delegate.reset();
  const auto request = messager->XPCMessageForMessage(11, {}, nullptr);
  ASSERT_TRUE(request);
  EXPECT_FALSE(request->contains("auth"));
  EXPECT_TRUE(fake_.calls.empty());
}

TEST_F(MessagerClientTest, AnUnserializablePayloadStopsBeforeAuthorization) {
  const Value payload = Value::dictionary({{"cause", Value::error(platform::Error::make("d", 1))}});
  ErrorRef error;
  EXPECT_FALSE(client(rightA_)->XPCMessageForMessage(11, payload, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, LKSMessagerErrorDomain);
  EXPECT_EQ(error->code, LKSMessagerErrorSerializeMessage);
  EXPECT_EQ(error->userInfo.get("message"), Value::integer(11));
  EXPECT_EQ(error->userInfo.get("payload"), Value::string(payload.description()));
  EXPECT_TRUE(error->underlyingError());
  EXPECT_TRUE(fake_.calls.empty());
}

TEST_F(MessagerClientTest, AFailedAuthorizationIsTheCause) {
  fake_.createStatus = platform::errAuthorizationInternal;
  ErrorRef error;
  EXPECT_FALSE(client(rightA_)->XPCMessageForMessage(21, {}, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, LKSMessagerErrorAuthorize);
  EXPECT_EQ(error->userInfo.get("message"), Value::integer(21));
  ASSERT_TRUE(error->underlyingError());
  EXPECT_EQ(error->underlyingError()->domain, LKSAuthorizationErrorDomain);
}

TEST_F(MessagerClientTest, ConnectionErrorsBecomeServiceErrors) {
  auto messager = client(noRights_);
  ErrorRef error;
  EXPECT_FALSE(messager->replyForMessage(5, platform::XPC_ERROR_CONNECTION_INVALID, &error));
  EXPECT_EQ(error->code, LKSMessagerErrorServiceUnavailable);
  EXPECT_EQ(error->userInfo.get("service"), Value::string(kService));
  EXPECT_EQ(error->userInfo.get("message"), Value::integer(5));
  EXPECT_FALSE(messager->replyForMessage(5, platform::XPC_ERROR_CONNECTION_INTERRUPTED, &error));
  EXPECT_EQ(error->code, LKSMessagerErrorServiceDisappeared);
}

TEST_F(MessagerClientTest, TheCarriedErrorWinsOverThePayload) {
  const ErrorRef carried = platform::Error::make("com.larkspan.quillhaven", 5, {{"key", Value::string("Bogus")}});
  const Dictionary reply{{"error", Value::data(archive(carried))},
                         {"payload", Value::data(*platform::dataWithPropertyList(
                                         Value::dictionary({}), platform::PropertyListFormat::Binary, nullptr))}};
  ErrorRef error;
  EXPECT_FALSE(client(noRights_)->replyForMessage(2, XPCObject::dictionary(reply), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(*error, *carried);
}

TEST_F(MessagerClientTest, RepliesWithoutPayloadOrWithAnyFormat) {
  auto messager = client(noRights_);
  EXPECT_EQ(messager->replyForMessage(15, XPCObject::dictionary({}), nullptr), Value::dictionary({}));
  // Any property-list format, any root: the value comes back as it is.
  const std::string text = "(a, b)";
  const Dictionary reply{{"payload", Value::data(Bytes(text.begin(), text.end()))}};
  EXPECT_EQ(messager->replyForMessage(9, XPCObject::dictionary(reply), nullptr),
            Value::array({Value::string("a"), Value::string("b")}));
}

TEST_F(MessagerClientTest, UndecodableRepliesAreErrorsFiveAndSix) {
  auto messager = client(noRights_);
  ErrorRef error;
  const std::string garbage = "\x01\x02 not a property list";
  EXPECT_FALSE(messager->replyForMessage(
      1, XPCObject::dictionary({{"payload", Value::data(Bytes(garbage.begin(), garbage.end()))}}), &error));
  EXPECT_EQ(error->code, LKSMessagerErrorDeserializeReply);
  EXPECT_TRUE(error->underlyingError());

  // A keyed archive of something that is not an error.
  const Bytes notAnError = *platform::dataWithPropertyList(
      Value::dictionary({{"$archiver", Value::string("NSKeyedArchiver")},
                         {"$version", Value::integer(100000)},
                         {"$top", Value::dictionary({{"root", Value::uid(1)}})},
                         {"$objects", Value::array({Value::string("$null"), Value::string("text")})}}),
      platform::PropertyListFormat::Binary, nullptr);
  error = nullptr;
  EXPECT_FALSE(messager->replyForMessage(1, XPCObject::dictionary({{"error", Value::data(notAnError)}}), &error));
  EXPECT_EQ(error->code, LKSMessagerErrorUnarchiveReplyError);
  EXPECT_EQ(error->userInfo.get("message"), Value::integer(1));
  EXPECT_TRUE(error->underlyingError());
}

TEST_F(MessagerClientTest, AsynchronousSendThatCannotBeBuiltAnswersAtOnce) {
  auto messager = client(noRights_);
  bool called = false;
  std::thread::id thread;
  messager->sendMessage(2, Value::dictionary({{"x", Value::error(platform::Error::make("d", 1))}}),
                        platform::SerialQueue::create("replies"), [&](const Value& reply, const ErrorRef& error) {
                          called = true;
                          thread = std::this_thread::get_id();
                          EXPECT_FALSE(reply);
                          EXPECT_EQ(error->code, LKSMessagerErrorSerializeMessage);
                        });
  EXPECT_TRUE(called);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(MessagerClientTest, RoundTripsThroughAService) {
  PrivateServiceDirectory directory;
  TestService service(kService, [](const std::shared_ptr<platform::XPCPeer>& peer, platform::XPCFrame frame) {
    if (frame.messageId == 0) return;
    // Replies with the payload it was sent, as a binary property list.
    Dictionary reply;
    if (frame.message.contains("payload")) reply.set("payload", frame.message.get("payload"));
    peer->reply(frame.messageId, reply, nullptr);
  });
  auto messager = client(noRights_);
  const Value payload = Value::dictionary({{"Hours", Value::unsignedInteger(2)}});
  EXPECT_EQ(messager->sendSynchronousMessage(13, payload, nullptr), payload);
  EXPECT_EQ(messager->sendSynchronousMessage(7, {}, nullptr), Value::dictionary({}));

  std::promise<Value> asyncReply;
  messager->sendMessage(13, payload, platform::SerialQueue::create("replies"),
                        [&](const Value& reply, const ErrorRef&) { asyncReply.set_value(reply); });
  EXPECT_EQ(asyncReply.get_future().get(), payload);
  EXPECT_TRUE(messager->sendMessage(13, payload, nullptr));
  messager->cancel();
  LKSQueueMain()->sync([] {});
}

TEST_F(MessagerClientTest, NoServiceIsCodeSevenNamingTheService) {
  PrivateServiceDirectory directory;
  auto messager = client(noRights_);
  ErrorRef error;
  EXPECT_FALSE(messager->sendSynchronousMessage(1, {}, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, LKSMessagerErrorServiceUnavailable);
  EXPECT_EQ(error->userInfo.get("service"), Value::string(kService));
  LKSQueueMain()->sync([] {});
}

}  // namespace
