#include "scheduler/request_processor.h"

#include <string>

#include "errors/error_domains.h"
#include "errors/lks_error.h"
#include "platform/foundation/clock.h"
#include "platform/plist/property_list.h"
#include "scheduler/faults.h"
#include "scheduler/reply_encoding.h"
#include "scheduler/request_handlers.h"
#include "scheduler/request_record.h"
#include "scheduler/scheduler_errors.h"
#include "scheduler/scheduler_log.h"
#include "scheduler/state_files.h"

namespace dev_scheduler {
namespace {

constexpr const char* kMessageKey = "message";
constexpr const char* kPayloadKey = "payload";
constexpr const char* kAuthKey = "auth";

const char* authorizationText(AuthorizationCheck check) {
  switch (check) {
    case AuthorizationCheck::NotNeeded:
      return "no rights needed";
    case AuthorizationCheck::Missing:
      return "auth missing";
    case AuthorizationCheck::Valid:
      return "auth valid";
    case AuthorizationCheck::Invalid:
      return "auth invalid";
  }
  return "";
}

std::string messageText(const std::optional<std::int64_t>& message) {
  return message ? "message " + std::to_string(*message) : "request without a message number";
}

// What `result` becomes on the wire; a reply that cannot travel is refused with
// messager code 4, naming the reply.
platform::Dictionary encodeResult(const HandlerResult& result, const std::optional<std::int64_t>& message,
                                  std::string* outcome) {
  platform::ErrorRef failure;
  platform::ErrorRef refusal = result.error;
  if (!refusal) {
    if (!result.reply) {
      *outcome = "replied";
      return {};
    }
    if (std::optional<platform::Dictionary> reply = payloadReply(result.reply, &failure)) {
      *outcome = "replied with a payload";
      return *reply;
    }
    refusal = serializeReplyError(message.value_or(0), result.reply);
  }
  *outcome = "refused: " + refusal->domain + " " + std::to_string(refusal->code);
  if (std::optional<platform::Dictionary> reply = errorReply(refusal, &failure)) return *reply;
  *outcome += " (not sent: " + LKSError::localizedDescriptionForError(failure) + ")";
  return {};
}

}  // namespace

ReceivedRequest RequestProcessor::receive(const platform::XPCPeer& peer, const platform::XPCFrame& request,
                                          AuthorizationCheck* check, platform::ErrorRef* whyNotAuthorized) const {
  ReceivedRequest received;
  received.peer = peer.credentials();
  if (const platform::Integer* number = request.message.get(kMessageKey).asInteger()) {
    received.message = number->int64Value();
  }
  if (const platform::Value& data = request.message.get(kPayloadKey)) {
    if (const platform::Bytes* bytes = data.asData()) {
      received.payload = platform::propertyListWithData(*bytes, nullptr, nullptr);
    }
    received.payloadUnreadable = !received.payload;
  }
  const platform::Value& auth = request.message.get(kAuthKey);
  received.authPresent = static_cast<bool>(auth);
  *check = received.message ? checkAuthorization(*received.message, auth, whyNotAuthorized)
                            : AuthorizationCheck::NotNeeded;
  if (*check == AuthorizationCheck::Valid || *check == AuthorizationCheck::Invalid) {
    received.authValid = *check == AuthorizationCheck::Valid;
  }
  return received;
}

HandlerResult RequestProcessor::answer(const ReceivedRequest& received, AuthorizationCheck check) const {
  if (!received.message) {
    return HandlerResult::failure(messagerError(LKSMessagerErrorDeserializeMessage, std::nullopt));
  }
  if (check == AuthorizationCheck::Missing || check == AuthorizationCheck::Invalid) {
    return HandlerResult::failure(messagerError(LKSMessagerErrorMissingAuthorization, received.message));
  }
  if (received.payloadUnreadable) {
    return HandlerResult::failure(messagerError(LKSMessagerErrorDeserializeMessage, received.message));
  }
  const RequestContext context{state_, platform::Clock::current().now(), since_, backupSeconds_};
  return handleRequest(*received.message, context, received.payload);
}

void RequestProcessor::process(platform::XPCPeer& peer, const platform::XPCFrame& request) {
  AuthorizationCheck check = AuthorizationCheck::NotNeeded;
  platform::ErrorRef whyNotAuthorized;
  const ReceivedRequest received = receive(peer, request, &check, &whyNotAuthorized);

  std::optional<Fault> fault;
  platform::Dictionary reply;
  std::string outcome;
  {
    std::lock_guard lock(mutex_);
    platform::ErrorRef notRecorded;
    if (!record_.append(received, &notRecorded)) {
      logLine("cannot record the request: %s", LKSError::localizedDescriptionForError(notRecorded).c_str());
    }
    platform::ErrorRef badFault;
    if (received.message) fault = faultForMessage(state_.path(kFaultsFile), *received.message, &badFault);
    if (badFault) logLine("%s", LKSError::localizedDescriptionForError(badFault).c_str());
    if (!fault) reply = encodeResult(answer(received, check), received.message, &outcome);
  }

  platform::ErrorRef sendFailure;
  bool sent = true;
  if (fault) {
    outcome = std::string("fault ") + faultKindName(fault->kind);
    sent = injectFault(peer, request.messageId, *fault, &sendFailure);
  } else if (request.messageId != 0) {
    sent = peer.reply(request.messageId, reply, &sendFailure);
  }
  if (!sent) outcome += " (not sent: " + LKSError::localizedDescriptionForError(sendFailure) + ")";
  if (whyNotAuthorized) outcome += " (" + LKSError::localizedDescriptionForError(whyNotAuthorized) + ")";
  logLine("%s from uid %u pid %d, %s: %s", messageText(received.message).c_str(), received.peer.uid,
          static_cast<int>(received.peer.pid), authorizationText(check), outcome.c_str());
}

}  // namespace dev_scheduler
