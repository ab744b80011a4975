// Authorization Services that answer as a test scripts them and record every
// call, so a test can check what the manager asked for, with which flags and
// environment, and in which order.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/authorization_services.h"

namespace authorization_testing {

enum class Operation { Create, CopyRights, MakeExternalForm, CreateFromExternalForm, RightSet, Free };

struct Item {
  std::string name;
  std::string value;  // the bytes the item points at
  bool hasValue = false;
  std::uint32_t flags = 0;
  friend bool operator==(const Item&, const Item&) = default;
};

struct Call {
  Operation operation = Operation::Create;
  platform::AuthorizationRef authorization = nullptr;
  std::vector<Item> rights;
  bool hasRights = false;
  std::vector<Item> environment;
  bool hasEnvironment = false;
  platform::AuthorizationFlags flags = 0;
  std::vector<std::uint8_t> externalForm;
  std::string rightName;
  platform::Value definition;
};

class FakeAuthorization : public platform::AuthorizationOpaqueRef {};

class FakeAuthorizationServices : public platform::AuthorizationServices {
 public:
  // Scripted answers. A right not in rightStatus is refused with errAuthorizationDenied.
  platform::OSStatus createStatus = platform::errAuthorizationSuccess;
  std::map<std::string, platform::OSStatus> rightStatus;
  platform::OSStatus makeExternalFormStatus = platform::errAuthorizationSuccess;
  platform::OSStatus createFromExternalFormStatus = platform::errAuthorizationSuccess;
  std::map<std::string, platform::OSStatus> rightSetStatus;  // unlisted: success

  std::vector<Call> calls;

  ~FakeAuthorizationServices() override {
    EXPECT_TRUE(live_.empty()) << live_.size() << " authorization(s) never freed";
  }

  static platform::AuthorizationExternalForm formWithPattern(std::uint8_t first) {
    platform::AuthorizationExternalForm form;
    for (std::size_t i = 0; i < sizeof form.bytes; ++i) form.bytes[i] = static_cast<std::uint8_t>(first + i);
    return form;
  }
  platform::AuthorizationExternalForm externalForm = formWithPattern(0xa0);

  std::vector<Call> callsOf(Operation operation) const {
    std::vector<Call> found;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
                 [&](const Call& call) { return call.operation == operation; });
    return found;
  }
  std::size_t count(Operation operation) const { return callsOf(operation).size(); }
  // The right names asked for with AuthorizationCopyRights, in order.
  std::vector<std::string> rightsAskedFor() const {
    std::vector<std::string> names;
    for (const Call& call : callsOf(Operation::CopyRights)) {
      for (const Item& item : call.rights) names.push_back(item.name);
    }
    return names;
  }
  std::size_t liveAuthorizations() const { return live_.size(); }

  platform::OSStatus AuthorizationCreate(const platform::AuthorizationRights* rights,
                                         const platform::AuthorizationEnvironment* environment,
                                         platform::AuthorizationFlags flags,
                                         platform::AuthorizationRef* authorization) override {
    Call call = describe(Operation::Create, nullptr, rights, environment, flags);
    if (createStatus == platform::errAuthorizationSuccess) {
      live_.push_back(std::make_unique<FakeAuthorization>());
      *authorization = live_.back().get();
      call.authorization = *authorization;
    }
    calls.push_back(std::move(call));
    return createStatus;
  }

  platform::OSStatus AuthorizationCopyRights(platform::AuthorizationRef authorization,
                                             const platform::AuthorizationRights* rights,
                                             const platform::AuthorizationEnvironment* environment,
                                             platform::AuthorizationFlags flags) override {
    EXPECT_TRUE(isLive(authorization));
    calls.push_back(describe(Operation::CopyRights, authorization, rights, environment, flags));
    for (const Item& item : calls.back().rights) {
      auto found = rightStatus.find(item.name);
      platform::OSStatus status =
          found == rightStatus.end() ? platform::errAuthorizationDenied : found->second;
      if (status != platform::errAuthorizationSuccess) return status;
    }
    return platform::errAuthorizationSuccess;
  }

  platform::OSStatus AuthorizationMakeExternalForm(
      platform::AuthorizationRef authorization,
      platform::AuthorizationExternalForm* form) override {
    EXPECT_TRUE(isLive(authorization));
    calls.push_back(describe(Operation::MakeExternalForm, authorization, nullptr, nullptr, 0));
    if (makeExternalFormStatus == platform::errAuthorizationSuccess) *form = externalForm;
    return makeExternalFormStatus;
  }

  platform::OSStatus AuthorizationCreateFromExternalForm(
      const platform::AuthorizationExternalForm* form,
      platform::AuthorizationRef* authorization) override {
    Call call = describe(Operation::CreateFromExternalForm, nullptr, nullptr, nullptr, 0);
    call.externalForm.assign(std::begin(form->bytes), std::end(form->bytes));
    if (createFromExternalFormStatus == platform::errAuthorizationSuccess) {
      live_.push_back(std::make_unique<FakeAuthorization>());
      *authorization = live_.back().get();
      call.authorization = *authorization;
    }
    calls.push_back(std::move(call));
    return createFromExternalFormStatus;
  }

  platform::OSStatus AuthorizationRightSet(platform::AuthorizationRef authorization,
                                           const char* rightName,
                                           const platform::Value& rightDefinition) override {
    EXPECT_TRUE(isLive(authorization));
    Call call = describe(Operation::RightSet, authorization, nullptr, nullptr, 0);
    call.rightName = rightName;
    call.definition = rightDefinition;
    calls.push_back(std::move(call));
    auto found = rightSetStatus.find(rightName);
    return found == rightSetStatus.end() ? platform::errAuthorizationSuccess : found->second;
  }

  platform::OSStatus AuthorizationFree(platform::AuthorizationRef authorization,
                                       platform::AuthorizationFlags flags) override {
    EXPECT_TRUE(isLive(authorization)) << "freed an authorization that is not live";
    calls.push_back(describe(Operation::Free, authorization, nullptr, nullptr, flags));
    std::erase_if(live_, [&](const auto& live) { return live.get() == authorization; });
    return platform::errAuthorizationSuccess;
  }

 private:
  static std::vector<Item> itemsOf(const platform::AuthorizationItemSet* set) {
    std::vector<Item> items;
    for (std::uint32_t i = 0; set && i < set->count; ++i) {
      const platform::AuthorizationItem& item = set->items[i];
      items.push_back({item.name ? item.name : "",
                       item.value ? std::string(static_cast<const char*>(item.value), item.valueLength)
                                  : std::string(),
                       item.value != nullptr, item.flags});
    }
    return items;
  }

  static Call describe(Operation operation, platform::AuthorizationRef authorization,
                       const platform::AuthorizationRights* rights,
                       const platform::AuthorizationEnvironment* environment,
                       platform::AuthorizationFlags flags) {
    Call call;
    call.operation = operation;
    call.authorization = authorization;
    call.rights = itemsOf(rights);
    call.hasRights = rights != nullptr;
    call.environment = itemsOf(environment);
    call.hasEnvironment = environment != nullptr;
    call.flags = flags;
    return call;
  }

  bool isLive(platform::AuthorizationRef authorization) const {
    return std::any_of(live_.begin(), live_.end(),
                       [&](const auto& live) { return live.get() == authorization; });
  }

  std::vector<std::unique_ptr<FakeAuthorization>> live_;
};

}  // namespace authorization_testing
