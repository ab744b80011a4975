// The English sentence of every known error, as data, and the one function that
// fills a sentence from an error's user info.
#include <string.h>  // strsignal

#include <cstring>

#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "errors/lks_error.h"
#include "platform/foundation/format.h"
#include "platform/foundation/http_status.h"
#include "platform/foundation/main_bundle.h"

namespace {

// How one placeholder is filled from the user-info value under its key.
enum class Fill : std::uint8_t {
  Object,      // "%@": the value's description; "(null)" when absent
  Unsigned,    // "%lu": the number read as unsigned; 0 when absent or not a number
  Int,         // "%d": the number read as int; 0 when absent or not a number
  ErrnoText,   // "%s": strerror of the number read as int
  SignalText,  // "%s": strsignal of the number read as int
  Joined,      // "%@": an array's entries joined by ", "; any other value as itself
};

struct Placeholder {
  Fill fill = Fill::Object;
  const char* key = nullptr;  // nullptr ends the list
};

struct Sentence {
  const char* text = nullptr;
  std::array<Placeholder, 3> placeholders{};
};

// Which of a row's two forms applies.
enum class Variant : std::uint8_t {
  None,        // `sentence` always
  StatusCode,  // `sentence`, followed by the HTTP reason phrase and code when "status-code" is given
  WhenKey,     // `sentence` when the user info holds `variantKey`, otherwise `otherwise`
};

struct DescriptionRow {
  std::string_view domain;
  std::int64_t code;
  Sentence sentence;
  Variant variant = Variant::None;
  const char* variantKey = nullptr;
  Sentence otherwise{};
};

constexpr Placeholder object(const char* key) { return {Fill::Object, key}; }
constexpr Placeholder message() { return {Fill::Unsigned, LKSErrorMessageKey}; }

// Domains appear in the order in which they are matched; codes within a domain
// are unique, so the first row of equal domain and code is the only one.
constexpr DescriptionRow kDescriptions[] = {
    {LKSUpdaterErrorDomain, LKSUpdaterErrorAlreadyUpToDate, {"You are already running the latest version."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorFetchInfo, {"Could not fetch update information."},
     Variant::StatusCode, LKSErrorStatusCodeKey},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorReadData, {"Could not read update data."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorInvalidInfo, {"Invalid update information: %@.", {object(LKSErrorInfoKey)}}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorDownload, {"Could not download update."},
     Variant::StatusCode, LKSErrorStatusCodeKey},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorMovePackage, {"Could not move update package."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorValidate, {"Could not validate update."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorInstall, {"Could not install update."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorNotNow, {"Update cannot be performed now."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorPhasedDeferral, {"Update has been deferred due to phased update."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorUntrustedServer,
     {"The update server could not be trusted, you may be victim of SSL/TLS decryption."}},
    {LKSUpdaterErrorDomain, LKSUpdaterErrorTooManyRequests,
     {"You have made too many requests to the update server. Please try again later."}},

    {LKSInstallerPackageErrorDomain, LKSInstallerPackageErrorRead,
     {"Could not read installer package at path '%@'.", {object(LKSErrorPathKey)}}},
    {LKSInstallerPackageErrorDomain, LKSInstallerPackageErrorNotSigned, {"Installer package is not signed."}},
    {LKSInstallerPackageErrorDomain, LKSInstallerPackageErrorInvalidSignature,
     {"Installer package signature is invalid."}},

    {LKSSpawnerErrorDomain, LKSSpawnerErrorSpawn,
     {"Could not spawn '%@'. %s (%d).",
      {object(LKSErrorToolKey), Placeholder{Fill::ErrnoText, LKSErrorErrnoKey}, Placeholder{Fill::Int, LKSErrorErrnoKey}}}},
    {LKSSpawnerErrorDomain, LKSSpawnerErrorExitStatus,
     {"%@ exited with status %@.", {object(LKSErrorToolKey), object(LKSErrorExitStatusKey)}}},
    {LKSSpawnerErrorDomain, LKSSpawnerErrorSignal,
     {"%@ received signal %d (%s).",
      {object(LKSErrorToolKey), Placeholder{Fill::Int, LKSErrorSignalKey}, Placeholder{Fill::SignalText, LKSErrorSignalKey}}}},

    {LKSMessagerErrorDomain, LKSMessagerErrorAuthorize, {"Could not authorize message (%lu).", {message()}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorMissingAuthorization,
     {"Authorization data is missing for message (%lu).", {message()}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorSerializeMessage,
     {"Could not serialize message (%lu), payload: %@.", {message(), object(LKSErrorPayloadKey)}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorDeserializeMessage, {"Could not deserialize message (%lu).", {message()}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorSerializeReply,
     {"Could not serialize reply for message (%lu), reply: %@.", {message(), object(LKSErrorReplyKey)}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorDeserializeReply,
     {"Could not deserialize reply for message (%lu).", {message()}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorUnarchiveReplyError,
     {"Could not unarchive reply error for message (%lu).", {message()}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorServiceUnavailable,
     {"Could not send message (%lu), the service is not available (%@).", {message(), object(LKSErrorServiceKey)}},
     Variant::WhenKey, LKSErrorMessageKey,
     {"The service is not available (%@).", {object(LKSErrorServiceKey)}}},
    {LKSMessagerErrorDomain, LKSMessagerErrorServiceDisappeared,
     {"Could not send message (%lu), the service disappeared (crash?) (%@).", {message(), object(LKSErrorServiceKey)}},
     Variant::WhenKey, LKSErrorMessageKey,
     {"The service disappeared (%@).", {object(LKSErrorServiceKey)}}},

    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorUserCanceled, {"User canceled authentication."}},
    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorCreate,
     {"Could not create authorization: %@.", {object(LKSErrorStatusKey)}}},
    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorMakeExternalForm,
     {"Could not make external form: %@.", {object(LKSErrorStatusKey)}}},
    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorCreateFromExternalForm,
     {"Could not create from external form: %@.", {object(LKSErrorStatusKey)}}},
    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorSetRights,
     {"Could not set rights (%@): %@.", {object(LKSErrorStatusKey), Placeholder{Fill::Joined, LKSErrorRightsKey}}},
     Variant::WhenKey, LKSErrorStatusKey,
     {"Could not set rights: %@.", {Placeholder{Fill::Joined, LKSErrorRightsKey}}}},
    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorValidateRights,
     {"Could not validate rights: %@.", {object(LKSErrorRightsKey)}}},
    {LKSAuthorizationErrorDomain, LKSAuthorizationErrorAuthorizeRights,
     {"Could not authorize rights: %@.", {object(LKSErrorRightsKey)}}},

    {QHVErrorDomain, QHVErrorBackupRunning, {"A backup operation is currently running."}},
    {QHVErrorDomain, QHVErrorUpdateRunning, {"An update operation is currently running."}},
    {QHVErrorDomain, QHVErrorPeersConnected, {"Peers are connected."}},
    {QHVErrorDomain, QHVErrorMissingValue, {"Missing value for key: '%@'.", {object(LKSErrorKeyKey)}}},
    {QHVErrorDomain, QHVErrorWrongType,
     {"Wrong type for key: '%@', expected: '%@'.", {object(LKSErrorKeyKey), object(LKSErrorExpectedKey)}}},
    {QHVErrorDomain, QHVErrorUnknownKey, {"Unknown key: '%@'.", {object(LKSErrorKeyKey)}}},
};

// The row of a domain and code; codes match by equality, so a negative code,
// which counts as a very large unsigned one, never has a row.
const DescriptionRow* findRow(const platform::Error& error) {
  for (const DescriptionRow& row : kDescriptions) {
    if (row.domain == error.domain && row.code == error.code) return &row;
  }
  return nullptr;
}

std::string localized(const char* sentence) {
  return platform::MainBundle::mainBundle().localizedStringForKey(sentence, "", nullptr);
}

std::string joinedEntries(const platform::Value& value) {
  const platform::Array* entries = value.asArray();
  if (!entries) return value.description();
  std::string joined;
  for (const platform::Value& entry : *entries) {
    if (!joined.empty()) joined += ", ";
    joined += entry.description();
  }
  return joined;
}

std::string fill(const Sentence& sentence, const platform::Dictionary& userInfo) {
  // The texts that "%s" and "%@" of joined entries point into live here.
  std::array<std::string, 3> texts;
  std::vector<platform::FormatArg> args;
  for (std::size_t i = 0; i < sentence.placeholders.size() && sentence.placeholders[i].key; ++i) {
    const Placeholder& placeholder = sentence.placeholders[i];
    const platform::Value& value = userInfo.get(placeholder.key);
    const int number = static_cast<int>(value.int64Value());
    switch (placeholder.fill) {
      case Fill::Object: args.emplace_back(value); break;
      case Fill::Unsigned: args.emplace_back(static_cast<unsigned long>(value.uint64Value())); break;
      case Fill::Int: args.emplace_back(number); break;
      case Fill::ErrnoText:
        texts[i] = std::strerror(number);
        args.emplace_back(texts[i].c_str());
        break;
      case Fill::SignalText:
        texts[i] = strsignal(number);
        args.emplace_back(texts[i].c_str());
        break;
      case Fill::Joined:
        texts[i] = joinedEntries(value);
        args.emplace_back(texts[i]);
        break;
    }
  }
  const std::string format = localized(sentence.text);
  // A translation whose placeholders do not fit reads as written.
  return platform::stringWithFormat(format.c_str(), std::span<const platform::FormatArg>(args)).value_or(format);
}

std::string describe(const DescriptionRow& row, const platform::Dictionary& userInfo) {
  switch (row.variant) {
    case Variant::None: return fill(row.sentence, userInfo);
    case Variant::WhenKey:
      return fill(userInfo.contains(row.variantKey) ? row.sentence : row.otherwise, userInfo);
    case Variant::StatusCode: {
      std::string base = fill(row.sentence, userInfo);
      if (!userInfo.contains(row.variantKey)) return base;
      const platform::Value& code = userInfo.get(row.variantKey);
      return platform::stringWithFormat("%@ %@ (%@).", base,
                                        platform::localizedStringForStatusCode(code.int64Value()), code)
          .value_or(base);
    }
  }
  return {};
}

}  // namespace

std::string LKSError::_localizedDescriptionForError(const platform::ErrorRef& error) {
  if (!error) return {};
  if (const DescriptionRow* row = findRow(*error)) return describe(*row, error->userInfo);
  return error->localizedDescription();
}
