// Authorization Services that answer as a test scripts them and record each call
// as one line of text, so that a test states the whole conversation: operation,
// handle (#1 is the first one made), rights, environment and flags.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "platform/authorization/services.h"

namespace authorization_testing {

using namespace platform;
using Lines = std::vector<std::string>;

class FakeAuthorizationServices : public AuthorizationServices {
 public:
  // Scripted answers by "create", "form", "from", "set <right>", or a right's name for
  // AuthorizationCopyRights. Anything else succeeds, except that a right is refused.
  std::map<std::string, OSStatus> answers;
  AuthorizationExternalForm externalForm;
  Lines calls;

  FakeAuthorizationServices() { std::iota(std::begin(externalForm.bytes), std::end(externalForm.bytes), 0xa0u); }
  ~FakeAuthorizationServices() override { EXPECT_TRUE(live_.empty()) << live_.size() << " never freed"; }

  OSStatus AuthorizationCreate(const AuthorizationRights* rights, const AuthorizationEnvironment* environment,
                               AuthorizationFlags flags, AuthorizationRef* made) override {
    return answer("create", "create(" + text(rights) + ", " + text(environment) + ", " + std::to_string(flags) + ")",
                  made);
  }
  OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                   const AuthorizationEnvironment* environment, AuthorizationFlags flags) override {
    calls.push_back("copy(" + handle(authorization) + ", " + text(rights) + ", " + text(environment) + ", " +
                    std::to_string(flags) + ")");
    for (const AuthorizationItem& item : std::span(rights->items, rights->count)) {
      const OSStatus status = answers.contains(item.name) ? answers[item.name] : errAuthorizationDenied;
      if (status != errAuthorizationSuccess) return status;
    }
    return errAuthorizationSuccess;
  }
  OSStatus AuthorizationMakeExternalForm(AuthorizationRef authorization, AuthorizationExternalForm* form) override {
    const OSStatus status = answer("form", "form(" + handle(authorization) + ")");
    if (status == errAuthorizationSuccess) *form = externalForm;
    return status;
  }
  OSStatus AuthorizationCreateFromExternalForm(const AuthorizationExternalForm* form, AuthorizationRef* made) override {
    const bool ours = std::equal(std::begin(form->bytes), std::end(form->bytes), externalForm.bytes);
    return answer("from", ours ? "from(form)" : "from(other)", made);
  }
  OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* name, const Value& definition) override {
    return answer(std::string("set ") + name,
                  "set(" + handle(authorization) + ", " + name + ", " + definition.description() + ")");
  }
  OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) override {
    calls.push_back("free(" + handle(authorization) + ", " + std::to_string(flags) + ")");
    std::erase(live_, authorization);
    return errAuthorizationSuccess;
  }

 private:
  // "null", or the items as "[name, name=value]" with each value's bytes.
  static std::string text(const AuthorizationItemSet* set) {
    if (!set) return "null";
    std::string text = "[";
    for (const AuthorizationItem& item : std::span(set->items, set->count)) {
      text += (text.size() > 1 ? ", " : "") + std::string(item.name);
      if (item.value) text.append("=").append(static_cast<const char*>(item.value), item.valueLength);
    }
    return text + "]";
  }
// GCC 12 at -O3 reports an impossible overlap inside std::string here (GCC bug 105651).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wrestrict"
#endif
  // "#n" for the n-th handle made here; a handle that is not live fails the test.
  std::string handle(AuthorizationRef authorization) {
    EXPECT_TRUE(std::find(live_.begin(), live_.end(), authorization) != live_.end()) << "a handle that is not live";
    const auto made = std::find_if(made_.begin(), made_.end(), [&](const auto& m) { return m.get() == authorization; });
    return "#" + std::to_string(made - made_.begin() + 1);
  }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
  // Records `call` and answers as scripted for `key`; on success makes a handle into `made` when given.
  OSStatus answer(const std::string& key, std::string call, AuthorizationRef* made = nullptr) {
    const OSStatus status = answers.contains(key) ? answers[key] : errAuthorizationSuccess;
    if (made && status == errAuthorizationSuccess) {
      made_.push_back(std::make_unique<AuthorizationOpaqueRef>());
      live_.push_back(*made = made_.back().get());
      call += " #" + std::to_string(made_.size());
    }
    calls.push_back(std::move(call));
    return status;
  }

  std::vector<std::unique_ptr<AuthorizationOpaqueRef>> made_;
  std::vector<AuthorizationRef> live_;
};

}  // namespace authorization_testing
