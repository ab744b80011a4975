#include "platform/authorization/rules.h"

#include <cerrno>

#include "platform/foundation/file_lock.h"
#include "platform/foundation/protected_file.h"
#include "platform/plist/property_list.h"

namespace platform {
namespace {

enum class Rule { Allow, Deny, IsRoot, AuthenticateAdmin };

struct NamedRule {
  std::string_view name;
  Rule rule;
};

constexpr NamedRule kRules[] = {
    {"allow", Rule::Allow},
    {"deny", Rule::Deny},
    {"is-root", Rule::IsRoot},
    {"authenticate-admin", Rule::AuthenticateAdmin},
};

constexpr Rule kDefaultRule = Rule::IsRoot;
constexpr std::size_t kMaxDatabaseSize = 16 * 1024 * 1024;
constexpr const char* kRightsKey = "rights";

// The rule a definition names; nullopt for a definition this system does not know.
std::optional<Rule> ruleOfDefinition(const Value& definition) {
  const std::string* name = definition.asString();
  if (const Dictionary* dictionary = definition.asDictionary()) {
    name = dictionary->get("rule").asString();
    if (!name) name = dictionary->get("class").asString();
  }
  if (!name) return std::nullopt;
  for (const NamedRule& entry : kRules) {
    if (entry.name == *name) return entry.rule;
  }
  return std::nullopt;
}

OSStatus decide(Rule rule, uid_t caller, bool interactionAllowed) {
  switch (rule) {
    case Rule::Allow:
      return errAuthorizationSuccess;
    case Rule::Deny:
      return errAuthorizationDenied;
    case Rule::IsRoot:
      return caller == 0 ? errAuthorizationSuccess : errAuthorizationDenied;
    case Rule::AuthenticateAdmin:
      return interactionAllowed ? errAuthorizationDenied : errAuthorizationInteractionNotAllowed;
  }
  return errAuthorizationDenied;
}

// The database's root dictionary: empty for a missing file, nullopt when it
// cannot be read or is not a dictionary whose "rights" entry (if any) is one.
std::optional<Dictionary> readRoot(const std::string& path) {
  Bytes contents;
  int failure = readProtectedFile(path, kMaxDatabaseSize, &contents);
  if (failure == ENOENT) return Dictionary();
  if (failure != 0) return std::nullopt;
  Value root = propertyListWithData(contents, nullptr, nullptr);
  const Dictionary* dictionary = root.asDictionary();
  if (!dictionary) return std::nullopt;
  const Value& rights = dictionary->get(kRightsKey);
  if (rights && !rights.asDictionary()) return std::nullopt;
  return *dictionary;
}

OSStatus statusOfWriteFailure(int failure) {
  return failure == EACCES || failure == EPERM ? errAuthorizationDenied : errAuthorizationInternal;
}

}  // namespace

OSStatus RightsDatabase::load(const std::string& path, RightsDatabase* database) {
  std::optional<Dictionary> root = readRoot(path);
  if (!root) return errAuthorizationInternal;
  if (const Dictionary* rights = root->get(kRightsKey).asDictionary()) database->rights_ = *rights;
  return errAuthorizationSuccess;
}

OSStatus RightsDatabase::evaluate(std::string_view right, uid_t caller,
                                  bool interactionAllowed) const {
  const Value& definition = rights_.get(right);
  if (!definition) return decide(kDefaultRule, caller, interactionAllowed);
  std::optional<Rule> rule = ruleOfDefinition(definition);
  return rule ? decide(*rule, caller, interactionAllowed) : errAuthorizationDenied;
}

OSStatus RightsDatabase::setDefinition(const std::string& path, const std::string& right,
                                       const Value& definition) {
  FileLock lock(path + ".lock");
  if (lock.failure() != 0) return statusOfWriteFailure(lock.failure());
  std::optional<Dictionary> root = readRoot(path);
  if (!root) return errAuthorizationInternal;
  const Dictionary* current = root->get(kRightsKey).asDictionary();
  Dictionary rights = current ? *current : Dictionary();
  rights.set(right, definition);
  root->set(kRightsKey, Value::dictionary(std::move(rights)));
  std::optional<Bytes> contents =
      dataWithPropertyList(Value::dictionary(std::move(*root)), PropertyListFormat::XML, nullptr);
  if (!contents) return errAuthorizationInternal;
  // Readable by everybody: ordinary processes evaluate rules for themselves.
  int failure = replaceFileAtomically(path, *contents, 0644);
  return failure == 0 ? errAuthorizationSuccess : statusOfWriteFailure(failure);
}

}  // namespace platform
