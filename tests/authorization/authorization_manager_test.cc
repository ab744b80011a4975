// The authorization manager against scripted Authorization Services: what it
// asks for, with which flags, in which order, and what it holds afterwards.
#include "authorization/authorization_manager.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "authorization/fake_authorization_services.h"
#include "errors/lks_error.h"
#include "log/log_test_fixture.h"

namespace {

using authorization_testing::Call;
using authorization_testing::FakeAuthorizationServices;
using authorization_testing::Item;
using authorization_testing::Operation;
using platform::Array;
using platform::Value;

constexpr const char* kModify1 = "com.larkspan.quillhaven.settings.modify-1";
constexpr const char* kModify2 = "com.larkspan.quillhaven.settings.modify-2";
constexpr const char* kUninstall = "com.larkspan.quillhaven.uninstall";
constexpr const char* kPrompt = "You must authenticate to change the product settings.";

Array rightsList(std::initializer_list<const char*> names) {
  Array list;
  for (const char* name : names) list.push_back(Value::string(name));
  return list;
}

// The "rights" entry of an error.
Array rightsOf(const platform::ErrorRef& error) {
  const Array* rights = error->userInfo.get(LKSErrorRightsKey).asArray();
  return rights ? *rights : Array();
}

void expectAuthorizationError(const platform::ErrorRef& error, std::int64_t code) {
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, LKSAuthorizationErrorDomain);
  EXPECT_EQ(error->code, code);
}

class AuthorizationManagerTest : public ::testing::Test {
 protected:
  ~AuthorizationManagerTest() override { manager_.invalidate(); }

  // The calls made since the last mark.
  std::vector<Call> callsSinceMark() const {
    return {services_.calls.begin() + static_cast<std::ptrdiff_t>(mark_), services_.calls.end()};
  }
  void mark() { mark_ = services_.calls.size(); }

  // True when the manager holds an authorization: invalidate frees one only then.
  bool holdsAuthorization() {
    std::size_t frees = services_.count(Operation::Free);
    manager_.invalidate();
    return services_.count(Operation::Free) > frees;
  }

  FakeAuthorizationServices services_;
  LKSAuthorizationManager manager_{services_};
  std::size_t mark_ = 0;
};

// --- The instance ---

TEST_F(AuthorizationManagerTest, NewManagerHoldsNothingAndAllowsInteraction) {
  EXPECT_TRUE(manager_.allowsUserInteraction());
  manager_.invalidate();
  EXPECT_TRUE(services_.calls.empty());
}

TEST_F(AuthorizationManagerTest, InteractionSwitchReadsWhatWasSet) {
  manager_.setAllowsUserInteraction(false);
  EXPECT_FALSE(manager_.allowsUserInteraction());
  manager_.setAllowsUserInteraction(true);
  EXPECT_TRUE(manager_.allowsUserInteraction());
}

TEST_F(AuthorizationManagerTest, InvalidateDestroysTheHeldRightsOnceThenANewOneIsMade) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  const platform::AuthorizationRef held = services_.calls.front().authorization;

  mark();
  manager_.invalidate();
  manager_.invalidate();  // nothing held any more: no second free
  std::vector<Call> calls = callsSinceMark();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].operation, Operation::Free);
  EXPECT_EQ(calls[0].authorization, held);
  EXPECT_EQ(calls[0].flags, platform::kAuthorizationFlagDestroyRights);

  // The same list again: the last list is kept, but without an authorization it does not count.
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  EXPECT_EQ(services_.count(Operation::Create), 2u);
}

TEST(AuthorizationManagerSharedTest, IsOneObjectForEveryThread) {
  LKSAuthorizationManager* seen[4] = {};
  std::vector<std::thread> threads;
  for (auto& slot : seen) threads.emplace_back([&slot] { slot = &LKSAuthorizationManager::sharedManager(); });
  for (std::thread& thread : threads) thread.join();
  for (LKSAuthorizationManager* manager : seen) EXPECT_EQ(manager, &LKSAuthorizationManager::sharedManager());
}

TEST(AuthorizationManagerSharedTest, WorksThroughTheServicesInstalledAtEachCall) {
  LKSAuthorizationManager& shared = LKSAuthorizationManager::sharedManager();
  for (int round = 0; round < 2; ++round) {
    // A fresh fake each round: the shared manager must never reach an earlier one.
    FakeAuthorizationServices services;
    services.rightStatus[kUninstall] = platform::errAuthorizationSuccess;
    platform::setAuthorizationServicesForTesting(&services);
    EXPECT_TRUE(shared.authorizeRights(rightsList({kUninstall}), nullptr));
    EXPECT_EQ(services.count(Operation::Create), 1u);
    shared.invalidate();
    platform::setAuthorizationServicesForTesting(nullptr);
  }
}

// --- authorizeRights ---

TEST_F(AuthorizationManagerTest, CreatesWithNoRightsNoEnvironmentAndDefaultFlags) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  std::vector<Call> creates = services_.callsOf(Operation::Create);
  ASSERT_EQ(creates.size(), 1u);
  EXPECT_FALSE(creates[0].hasRights);
  EXPECT_FALSE(creates[0].hasEnvironment);
  EXPECT_EQ(creates[0].flags, platform::kAuthorizationFlagDefaults);
}

TEST_F(AuthorizationManagerTest, AsksForOneRightAtATimeWithThePromptEnvironment) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  std::vector<Call> copies = services_.callsOf(Operation::CopyRights);
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_EQ(copies[0].authorization, services_.calls.front().authorization);
  EXPECT_EQ(copies[0].rights, (std::vector<Item>{{kModify1, "", false, 0}}));
  // The prompt's length is its byte count without a terminator.
  EXPECT_EQ(copies[0].environment, (std::vector<Item>{{"prompt", kPrompt, true, 0}}));
}

TEST_F(AuthorizationManagerTest, FlagsAreExtendPlusInteractionWhenAllowed) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  manager_.setAllowsUserInteraction(false);
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  std::vector<Call> copies = services_.callsOf(Operation::CopyRights);
  ASSERT_EQ(copies.size(), 2u);
  EXPECT_EQ(copies[0].flags, 3u);
  EXPECT_EQ(copies[1].flags, 2u);
}

TEST_F(AuthorizationManagerTest, TriesTheRightsInOrderUntilOneIsGranted) {
  services_.rightStatus[kModify1] = platform::errAuthorizationInteractionNotAllowed;
  services_.rightStatus[kModify2] = platform::errAuthorizationSuccess;
  const Array both = rightsList({kModify1, kModify2, kUninstall});
  platform::ErrorRef error;
  ASSERT_TRUE(manager_.authorizeRights(both, &error));
  EXPECT_FALSE(error);
  EXPECT_EQ(services_.rightsAskedFor(), (std::vector<std::string>{kModify1, kModify2}));

  // The whole list is what was granted: asking for it again reuses the authorization.
  mark();
  ASSERT_TRUE(manager_.authorizeRights(both, nullptr));
  EXPECT_EQ(services_.count(Operation::Create), 1u);
  EXPECT_EQ(services_.count(Operation::Free), 0u);
  std::vector<Call> again = callsSinceMark();
  ASSERT_EQ(again.size(), 2u);
  EXPECT_EQ(again[0].rights.front().name, kModify1);
  EXPECT_EQ(again[1].rights.front().name, kModify2);
  EXPECT_EQ(again[1].authorization, services_.calls.front().authorization);
}

TEST_F(AuthorizationManagerTest, ADifferentListFreesTheHeldAuthorizationWithoutDestroyingIt) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  services_.rightStatus[kUninstall] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  const platform::AuthorizationRef first = services_.calls.front().authorization;

  mark();
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kUninstall}), nullptr));
  std::vector<Call> calls = callsSinceMark();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].operation, Operation::Free);
  EXPECT_EQ(calls[0].authorization, first);
  EXPECT_EQ(calls[0].flags, platform::kAuthorizationFlagDefaults);
  EXPECT_EQ(calls[1].operation, Operation::Create);
  EXPECT_EQ(calls[2].operation, Operation::CopyRights);
  EXPECT_EQ(calls[2].authorization, calls[1].authorization);
}

TEST_F(AuthorizationManagerTest, TheSameNamesInAnotherOrderAreAnotherList) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1, kModify2}), nullptr));
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify2, kModify1}), nullptr));
  EXPECT_EQ(services_.count(Operation::Create), 2u);
}

TEST_F(AuthorizationManagerTest, CancelStopsAtOnceWithCodeZeroAndHoldsNothing) {
  services_.rightStatus[kModify1] = platform::errAuthorizationCanceled;
  services_.rightStatus[kModify2] = platform::errAuthorizationSuccess;
  const Array both = rightsList({kModify1, kModify2});
  platform::ErrorRef error;
  EXPECT_FALSE(manager_.authorizeRights(both, &error));
  expectAuthorizationError(error, LKSAuthorizationErrorUserCanceled);
  EXPECT_EQ(rightsOf(error), both);
  EXPECT_EQ(error->userInfo.size(), 1u);
  EXPECT_EQ(services_.rightsAskedFor(), (std::vector<std::string>{kModify1}));
  std::vector<Call> frees = services_.callsOf(Operation::Free);
  ASSERT_EQ(frees.size(), 1u);
  EXPECT_EQ(frees[0].flags, platform::kAuthorizationFlagDefaults);
  EXPECT_FALSE(holdsAuthorization());
}

TEST_F(AuthorizationManagerTest, EveryRightRefusedGivesCodeSixAfterTryingEach) {
  services_.rightStatus[kModify1] = platform::errAuthorizationDenied;
  services_.rightStatus[kModify2] = platform::errAuthorizationInteractionNotAllowed;
  const Array both = rightsList({kModify1, kModify2});
  platform::ErrorRef error;
  EXPECT_FALSE(manager_.authorizeRights(both, &error));
  expectAuthorizationError(error, LKSAuthorizationErrorAuthorizeRights);
  EXPECT_EQ(rightsOf(error), both);
  EXPECT_EQ(services_.rightsAskedFor(), (std::vector<std::string>{kModify1, kModify2}));
  EXPECT_EQ(services_.count(Operation::Free), 1u);
  EXPECT_FALSE(holdsAuthorization());
}

TEST_F(AuthorizationManagerTest, AnEmptyListGivesCodeSixWithAnEmptyList) {
  platform::ErrorRef error;
  EXPECT_FALSE(manager_.authorizeRights(Array(), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorAuthorizeRights);
  ASSERT_TRUE(error->userInfo.get(LKSErrorRightsKey).asArray());
  EXPECT_TRUE(rightsOf(error).empty());
  EXPECT_EQ(services_.count(Operation::CopyRights), 0u);
  EXPECT_FALSE(holdsAuthorization());
}

TEST_F(AuthorizationManagerTest, AFailedRequestGivesUpTheAuthorizationItHeld) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  ASSERT_TRUE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  services_.rightStatus[kModify1] = platform::errAuthorizationDenied;
  EXPECT_FALSE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  // Reused (one create), then freed on the refusal.
  EXPECT_EQ(services_.count(Operation::Create), 1u);
  EXPECT_FALSE(holdsAuthorization());
}

TEST_F(AuthorizationManagerTest, CreateFailureGivesCodeOneWithTheStatus) {
  services_.createStatus = platform::errAuthorizationInternal;
  platform::ErrorRef error;
  EXPECT_FALSE(manager_.authorizeRights(rightsList({kModify1}), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorCreate);
  EXPECT_EQ(error->userInfo, (platform::Dictionary{{"status", Value::integer(-60008)}}));
  EXPECT_EQ(services_.count(Operation::CopyRights), 0u);
  EXPECT_FALSE(holdsAuthorization());
}

TEST_F(AuthorizationManagerTest, AnEntryThatIsNotANameIsPassedOver) {
  services_.rightStatus[kModify2] = platform::errAuthorizationSuccess;
  Array list{Value::integer(7), Value::string(kModify2)};
  EXPECT_TRUE(manager_.authorizeRights(list, nullptr));
  EXPECT_EQ(services_.rightsAskedFor(), (std::vector<std::string>{kModify2}));
}

// --- authorizationExternalDataWithRights ---

TEST_F(AuthorizationManagerTest, ExternalDataIsTheThirtyTwoBytesOfTheHeldAuthorization) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  std::optional<platform::Bytes> data =
      manager_.authorizationExternalDataWithRights(rightsList({kModify1}), nullptr);
  ASSERT_TRUE(data);
  ASSERT_EQ(data->size(), 32u);
  EXPECT_EQ(0, std::memcmp(data->data(), services_.externalForm.bytes, 32));
  std::vector<Call> makes = services_.callsOf(Operation::MakeExternalForm);
  ASSERT_EQ(makes.size(), 1u);
  EXPECT_EQ(makes[0].authorization, services_.calls.front().authorization);
}

TEST_F(AuthorizationManagerTest, ExternalDataHandsOnTheAuthorizationError) {
  platform::ErrorRef error;
  EXPECT_FALSE(manager_.authorizationExternalDataWithRights(rightsList({kModify1}), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorAuthorizeRights);
  EXPECT_FALSE(error->underlyingError());
  EXPECT_EQ(services_.count(Operation::MakeExternalForm), 0u);
}

TEST_F(AuthorizationManagerTest, ExternalFormFailureGivesCodeTwoWithTheStatus) {
  services_.rightStatus[kModify1] = platform::errAuthorizationSuccess;
  services_.makeExternalFormStatus = platform::errAuthorizationDenied;
  platform::ErrorRef error;
  EXPECT_FALSE(manager_.authorizationExternalDataWithRights(rightsList({kModify1}), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorMakeExternalForm);
  EXPECT_EQ(error->userInfo, (platform::Dictionary{{"status", Value::integer(-60005)}}));
}

// --- validateAuthorizationExternalData ---

class ClassOperationsTest : public ::testing::Test {
 protected:
  ClassOperationsTest() { platform::setAuthorizationServicesForTesting(&services_); }
  ~ClassOperationsTest() override { platform::setAuthorizationServicesForTesting(nullptr); }

  static platform::Bytes formData(std::size_t size) {
    platform::Bytes data(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(0x10 + i);
    return data;
  }

  FakeAuthorizationServices services_;
};

TEST_F(ClassOperationsTest, AnyHeldRightOfTheListIsEnough) {
  services_.rightStatus[kModify2] = platform::errAuthorizationSuccess;
  const platform::Bytes data = formData(40);  // only the first 32 bytes are the form
  EXPECT_TRUE(LKSAuthorizationManager::validateAuthorizationExternalData(
      data, rightsList({kModify1, kModify2, kUninstall}), nullptr));
  ASSERT_EQ(services_.calls.size(), 4u);
  EXPECT_EQ(services_.calls[0].operation, Operation::CreateFromExternalForm);
  EXPECT_EQ(services_.calls[0].externalForm, platform::Bytes(data.begin(), data.begin() + 32));
  for (std::size_t i : {1u, 2u}) {
    EXPECT_EQ(services_.calls[i].operation, Operation::CopyRights);
    EXPECT_EQ(services_.calls[i].flags, platform::kAuthorizationFlagDefaults);
    EXPECT_FALSE(services_.calls[i].hasEnvironment);
    EXPECT_EQ(services_.calls[i].authorization, services_.calls[0].authorization);
  }
  EXPECT_EQ(services_.rightsAskedFor(), (std::vector<std::string>{kModify1, kModify2}));
  EXPECT_EQ(services_.calls[3].operation, Operation::Free);
  EXPECT_EQ(services_.calls[3].flags, platform::kAuthorizationFlagDefaults);
}

TEST_F(ClassOperationsTest, NoHeldRightGivesCodeFiveWithOneEntryPerRight) {
  services_.rightStatus[kModify2] = platform::errAuthorizationInteractionNotAllowed;
  platform::ErrorRef error;
  EXPECT_FALSE(LKSAuthorizationManager::validateAuthorizationExternalData(
      formData(32), rightsList({kModify1, kModify2}), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorValidateRights);
  EXPECT_EQ(rightsOf(error), rightsList({"com.larkspan.quillhaven.settings.modify-1 (-60005)",
                                         "com.larkspan.quillhaven.settings.modify-2 (-60007)"}));
  EXPECT_EQ(services_.count(Operation::Free), 1u);
}

TEST_F(ClassOperationsTest, AnEmptyListGivesCodeFiveWithNoEntries) {
  platform::ErrorRef error;
  EXPECT_FALSE(LKSAuthorizationManager::validateAuthorizationExternalData(formData(32), Array(), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorValidateRights);
  ASSERT_TRUE(error->userInfo.get(LKSErrorRightsKey).asArray());
  EXPECT_TRUE(rightsOf(error).empty());
  EXPECT_EQ(services_.count(Operation::Free), 1u);
}

TEST_F(ClassOperationsTest, AnUnknownFormGivesCodeThreeWithTheStatus) {
  services_.createFromExternalFormStatus = platform::errAuthorizationInvalidRef;
  platform::ErrorRef error;
  EXPECT_FALSE(LKSAuthorizationManager::validateAuthorizationExternalData(
      formData(32), rightsList({kModify1}), &error));
  expectAuthorizationError(error, LKSAuthorizationErrorCreateFromExternalForm);
  EXPECT_EQ(error->userInfo, (platform::Dictionary{{"status", Value::integer(-60002)}}));
  EXPECT_EQ(services_.count(Operation::CopyRights), 0u);
}

TEST_F(ClassOperationsTest, DataShorterThanAFormIsRefusedWithoutAsking) {
  for (std::size_t size : {0u, 1u, 31u}) {
    platform::ErrorRef error;
    EXPECT_FALSE(LKSAuthorizationManager::validateAuthorizationExternalData(
        formData(size), rightsList({kModify1}), &error))
        << size;
    expectAuthorizationError(error, LKSAuthorizationErrorCreateFromExternalForm);
    EXPECT_EQ(error->userInfo.get(LKSErrorStatusKey), Value::integer(-60002)) << size;
  }
  EXPECT_TRUE(services_.calls.empty());
}

// --- setAuthorizationRights ---

TEST_F(ClassOperationsTest, SetRightsInstallsEachDefinitionUnchangedInOrder) {
  const platform::Dictionary definitions{
      {kUninstall, Value::string("is-root")},
      {kModify1, Value::dictionary({{"rule", Value::string("allow")}})},
  };
  platform::ErrorRef error;
  EXPECT_TRUE(LKSAuthorizationManager::setAuthorizationRights(definitions, &error));
  EXPECT_FALSE(error);
  ASSERT_EQ(services_.calls.size(), 4u);
  EXPECT_EQ(services_.calls[0].operation, Operation::Create);
  EXPECT_FALSE(services_.calls[0].hasRights);
  EXPECT_EQ(services_.calls[0].flags, platform::kAuthorizationFlagDefaults);
  EXPECT_EQ(services_.calls[1].rightName, kModify1);
  EXPECT_EQ(services_.calls[1].definition, definitions.get(kModify1));
  EXPECT_EQ(services_.calls[2].rightName, kUninstall);
  EXPECT_EQ(services_.calls[2].definition, Value::string("is-root"));
  EXPECT_EQ(services_.calls[3].operation, Operation::Free);
  EXPECT_EQ(services_.calls[3].flags, platform::kAuthorizationFlagDefaults);
}

TEST_F(ClassOperationsTest, SetRightsListsEveryRightThatFailedAndSetsTheOthers) {
  services_.rightSetStatus[kModify1] = platform::errAuthorizationDenied;
  services_.rightSetStatus[kUninstall] = platform::errAuthorizationInternal;
  const platform::Dictionary definitions{{kModify1, Value::string("allow")},
                                         {kModify2, Value::string("allow")},
                                         {kUninstall, Value::string("deny")}};
  platform::ErrorRef error;
  EXPECT_FALSE(LKSAuthorizationManager::setAuthorizationRights(definitions, &error));
  expectAuthorizationError(error, LKSAuthorizationErrorSetRights);
  EXPECT_EQ(error->userInfo, (platform::Dictionary{{"rights", Value::array(rightsList({
      "com.larkspan.quillhaven.settings.modify-1 (-60005)",
      "com.larkspan.quillhaven.uninstall (-60008)"}))}}));
  EXPECT_EQ(services_.count(Operation::RightSet), 3u);
  EXPECT_EQ(services_.count(Operation::Free), 1u);
}

TEST_F(ClassOperationsTest, SetRightsCreateFailureGivesTheStatusAndEveryName) {
  services_.createStatus = platform::errAuthorizationInternal;
  platform::ErrorRef error;
  EXPECT_FALSE(LKSAuthorizationManager::setAuthorizationRights(
      {{kModify2, Value::string("allow")}, {kModify1, Value::string("allow")}}, &error));
  expectAuthorizationError(error, LKSAuthorizationErrorSetRights);
  EXPECT_EQ(error->userInfo, (platform::Dictionary{{"status", Value::integer(-60008)},
                                                   {"rights", Value::array(rightsList({kModify1, kModify2}))}}));
  EXPECT_EQ(services_.count(Operation::RightSet), 0u);
}

// --- Errors go through the factory, and only when asked for ---

class AuthorizationErrorLoggingTest : public log_testing::LogFacilityTest {
 protected:
  ~AuthorizationErrorLoggingTest() override { manager_.invalidate(); }
  FakeAuthorizationServices services_;
  LKSAuthorizationManager manager_{services_};
};

TEST_F(AuthorizationErrorLoggingTest, AnErrorIsLoggedWhenMadeAtItsLevel) {
  init();
  services_.rightStatus[kModify1] = platform::errAuthorizationCanceled;
  platform::ErrorRef canceled;
  EXPECT_FALSE(manager_.authorizeRights(rightsList({kModify1}), &canceled));
  services_.rightStatus[kModify1] = platform::errAuthorizationDenied;
  platform::ErrorRef refused;
  EXPECT_FALSE(manager_.authorizeRights(rightsList({kModify1}), &refused));

  std::vector<log_testing::UnifiedEntry> entries = unified_.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].type, LKSError::logLevelForError(canceled));
  EXPECT_EQ(entries[0].type, 1u);
  EXPECT_EQ(entries[0].message, LKSError::localizedDescriptionForError(canceled));
  EXPECT_EQ(entries[1].type, 16u);
  EXPECT_EQ(entries[1].message, LKSError::localizedDescriptionForError(refused));
}

TEST_F(AuthorizationErrorLoggingTest, NothingIsMadeOrLoggedWithoutAnOutParameter) {
  init();
  services_.createStatus = platform::errAuthorizationInternal;
  EXPECT_FALSE(manager_.authorizeRights(rightsList({kModify1}), nullptr));
  EXPECT_FALSE(manager_.authorizationExternalDataWithRights(rightsList({kModify1}), nullptr));
  EXPECT_TRUE(unified_.entries().empty());
}

}  // namespace
