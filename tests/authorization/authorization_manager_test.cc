// The authorization manager against scripted Authorization Services: what it
// asks for, with which flags, in which order, what it holds afterwards, and the
// error of every way it fails.
#include "authorization/authorization_manager.h"

#include <gtest/gtest.h>

#include <functional>

#include "authorization/fake_authorization_services.h"
#include "errors/lks_error.h"
#include "harness/installed.h"
#include "log/log_test_fixture.h"

namespace {

using namespace authorization_testing;

constexpr const char* kCreate = "create(null, null, 0)";

Array names(std::initializer_list<const char*> list) {
  Array array;
  for (const char* name : list) array.push_back(Value::string(name));
  return array;
}

// The request for `right` on `handle` with `flags`, and the prompt as the environment.
std::string copy(const char* handle, const char* right, int flags) {
  return std::string("copy(") + handle + ", [" + right +
         "], [prompt=You must authenticate to change the product settings.], " + std::to_string(flags) + ")";
}

class AuthorizationManagerTest : public ::testing::Test {
 protected:
  ~AuthorizationManagerTest() override { manager_.invalidate(); }

  FakeAuthorizationServices services_;
  const testing_support::Installed<AuthorizationServices> installed_{&services_};
  LKSAuthorizationManager manager_;
};

TEST_F(AuthorizationManagerTest, TriesAlternativesInOrderAndKeepsTheGrantForTheSameList) {
  services_.answers = {{"r.a", errAuthorizationInteractionNotAllowed}, {"r.b", errAuthorizationSuccess}};
  const Array list = names({"r.a", "r.b", "r.c"}), reordered = names({"r.b", "r.a"});
  EXPECT_TRUE(manager_.allowsUserInteraction());
  ASSERT_TRUE(manager_.authorizeRights(list, nullptr));
  manager_.setAllowsUserInteraction(false);
  EXPECT_FALSE(manager_.allowsUserInteraction());
  ASSERT_TRUE(manager_.authorizeRights(list, nullptr));       // the grant is asked again, without interaction
  ASSERT_TRUE(manager_.authorizeRights(reordered, nullptr));  // another list: freed, not destroyed
  manager_.invalidate();                                      // destroyed, once
  manager_.invalidate();
  ASSERT_TRUE(manager_.authorizeRights(reordered, nullptr));  // obtained anew
  services_.answers = {};
  EXPECT_FALSE(manager_.authorizeRights(reordered, nullptr));  // refused: given up
  manager_.invalidate();
  services_.answers["r.a"] = errAuthorizationSuccess;
  // An entry that names no right is passed over; the external form is the held grant's 32 bytes.
  EXPECT_EQ(manager_.authorizationExternalDataWithRights({Value::integer(7), Value::string("r.a")}, nullptr),
            Bytes(std::begin(services_.externalForm.bytes), std::end(services_.externalForm.bytes)));
  EXPECT_EQ(services_.calls, (Lines{kCreate + std::string(" #1"), copy("#1", "r.a", 3), copy("#1", "r.b", 3),
                                    copy("#1", "r.a", 2), copy("#1", "r.b", 2), "free(#1, 0)",
                                    kCreate + std::string(" #2"), copy("#2", "r.b", 2), "free(#2, 8)",
                                    kCreate + std::string(" #3"), copy("#3", "r.b", 2),
                                    copy("#3", "r.b", 2), copy("#3", "r.a", 2), "free(#3, 0)",
                                    kCreate + std::string(" #4"), copy("#4", "r.a", 2), "form(#4)"}));
}

TEST_F(AuthorizationManagerTest, EveryFailureHasItsCodeAndUserInfoAndHoldsNothing) {
  using Act = std::function<bool(LKSAuthorizationManager&, ErrorRef*)>;
  const auto authorize = [](Array list) -> Act {
    return [=](auto& manager, ErrorRef* e) { return manager.authorizeRights(list, e); };
  };
  const Act exportForm = [](auto& manager, ErrorRef* e) {
    return manager.authorizationExternalDataWithRights(names({"r.a"}), e).has_value();
  };
  const auto validate = [](std::size_t size, Array list) -> Act {
    return [=](auto&, ErrorRef* e) {
      return LKSAuthorizationManager::validateAuthorizationExternalData(Bytes(size, 0x10), list, e);
    };
  };
  const Act setRights = [](auto&, ErrorRef* e) {
    return LKSAuthorizationManager::setAuthorizationRights(
        {{"r.c", Value::string("deny")}, {"r.b", Value::string("allow")}, {"r.a", Value::string("allow")}}, e);
  };
  const auto status = [](OSStatus s) { return Dictionary{{"status", Value::integer(s)}}; };
  const auto rights = [](std::initializer_list<const char*> list) {
    return Dictionary{{"rights", Value::array(names(list))}};
  };
  const struct {
    const char* why;
    std::map<std::string, OSStatus> answers;
    Act act;
    std::int64_t code;
    Dictionary userInfo;
    std::size_t calls;  // made to Authorization Services
  } rows[] = {
      {"a cancel stops at once: asking again would show the dialog again", {{"r.a", -60006}, {"r.b", 0}},
       authorize(names({"r.a", "r.b"})), 0, rights({"r.a", "r.b"}), 3},
      {"every alternative refused, each asked", {{"r.a", -60005}, {"r.b", -60007}}, authorize(names({"r.a", "r.b"})),
       6, rights({"r.a", "r.b"}), 4},
      {"an empty list grants nothing", {}, authorize({}), 6, rights({}), 2},
      {"no authorization", {{"create", -60008}}, authorize(names({"r.a"})), 1, status(-60008), 1},
      {"granted, but no external form", {{"form", -60005}, {"r.a", 0}}, exportForm, 2, status(-60005), 3},
      {"exporting what is refused: the refusal", {}, exportForm, 6, rights({"r.a"}), 3},
      {"an unknown form", {{"from", -60002}}, validate(32, names({"r.a"})), 3, status(-60002), 1},
      {"31 bytes are no form, and nobody is asked", {}, validate(31, names({"r.a"})), 3, status(-60002), 0},
      {"no right of the list held: one entry each", {{"r.b", -60007}}, validate(32, names({"r.a", "r.b"})), 5,
       rights({"r.a (-60005)", "r.b (-60007)"}), 4},
      {"validating an empty list", {}, validate(32, {}), 5, rights({}), 2},
      {"no authorization to set rights with: every name", {{"create", -60008}}, setRights, 4,
       Dictionary{{"status", Value::integer(-60008)}, {"rights", Value::array(names({"r.a", "r.b", "r.c"}))}}, 1},
      {"some rights not set: those, the others set", {{"set r.a", -60005}, {"set r.c", -60008}}, setRights, 4,
       rights({"r.a (-60005)", "r.c (-60008)"}), 5},
  };
  for (const auto& row : rows) {
    FakeAuthorizationServices services;
    const testing_support::Installed<AuthorizationServices> installed(&services);
    LKSAuthorizationManager manager;
    services.answers = row.answers;
    ErrorRef error;
    EXPECT_FALSE(row.act(manager, &error)) << row.why;
    ASSERT_TRUE(error) << row.why;
    EXPECT_EQ(*error, *Error::make(LKSAuthorizationErrorDomain, row.code, row.userInfo)) << row.why;
    EXPECT_EQ(services.calls.size(), row.calls) << row.why;
    for (const std::string& call : services.calls) EXPECT_NE(call, "free(#1, 8)") << row.why << ": not destroyed";
    // Only a granted authorization is still held, and freed now.
    manager.invalidate();
    EXPECT_EQ(services.calls.size(), row.calls + (row.code == 2 ? 1 : 0)) << row.why;
  }
}

TEST_F(AuthorizationManagerTest, ValidationCountsOnlyHeldRightsAndOneIsEnough) {
  services_.answers["r.b"] = errAuthorizationSuccess;
  Bytes data(std::begin(services_.externalForm.bytes), std::end(services_.externalForm.bytes));
  data.resize(40, 0xff);  // only the first 32 bytes are the form
  EXPECT_TRUE(LKSAuthorizationManager::validateAuthorizationExternalData(data, names({"r.a", "r.b", "r.c"}), nullptr));
  EXPECT_EQ(services_.calls, (Lines{"from(form) #1", "copy(#1, [r.a], null, 0)", "copy(#1, [r.b], null, 0)",
                                    "free(#1, 0)"}));
}

TEST_F(AuthorizationManagerTest, SetRightsInstallsEachDefinitionUnchangedInOrder) {
  EXPECT_TRUE(LKSAuthorizationManager::setAuthorizationRights(
      {{"r.b", Value::string("is-root")}, {"r.a", Value::dictionary({{"rule", Value::string("allow")}})}}, nullptr));
  EXPECT_EQ(services_.calls, (Lines{kCreate + std::string(" #1"), "set(#1, r.a, {\n    rule = allow;\n})",
                                    "set(#1, r.b, is-root)", "free(#1, 0)"}));
}

class AuthorizationErrorLoggingTest : public log_testing::LogFacilityTest {};

TEST_F(AuthorizationErrorLoggingTest, NoErrorIsMadeOrLoggedWithoutAnOutParameter) {
  init();
  FakeAuthorizationServices services;
  const testing_support::Installed<AuthorizationServices> installed(&services);
  LKSAuthorizationManager manager;
  EXPECT_FALSE(manager.authorizeRights(names({"r.a"}), nullptr));
  services.answers["create"] = errAuthorizationInternal;
  EXPECT_FALSE(manager.authorizationExternalDataWithRights(names({"r.a"}), nullptr));
  EXPECT_TRUE(unified_.entries().empty());
  ErrorRef error;
  EXPECT_FALSE(manager.authorizeRights(names({"r.a"}), &error));
  EXPECT_EQ(unified_.entries().size(), 1u);
}

}  // namespace
