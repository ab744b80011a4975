// One request from arrival to reply: it is read and recorded; then a fault set
// for its message answers it, or else it is checked (rights, payload) and
// carried out, and the reply or the refusal is sent.
#pragma once

#include <mutex>

#include "platform/xpc/listener.h"
#include "scheduler/request_authorization.h"
#include "scheduler/request_handlers.h"
#include "scheduler/request_record.h"
#include "scheduler/state_files.h"
#include "scheduler/state_store.h"

namespace dev_scheduler {

class RequestProcessor {
 public:
  // Serves the state in `state`: a kickstarted backup runs `backupSeconds`;
  // the scheduler began to serve at `since`.
  RequestProcessor(StateStore state, double backupSeconds, platform::Date since)
      : state_(std::move(state)), backupSeconds_(backupSeconds), since_(since), record_(state_.path(kRequestsFile)) {}

  // Answers `request` from `peer`. Safe to call from several peers' threads:
  // requests are recorded and carried out one at a time.
  void process(platform::XPCPeer& peer, const platform::XPCFrame& request);

 private:
  // What `request` says, with its "auth" checked: `check`, and when it is
  // invalid, why, in `whyNotAuthorized`.
  ReceivedRequest receive(const platform::XPCPeer& peer, const platform::XPCFrame& request, AuthorizationCheck* check,
                          platform::ErrorRef* whyNotAuthorized) const;
  // The answer to a request without a fault: refused when it names no message,
  // lacks the rights it needs or carries a payload that does not parse;
  // otherwise carried out.
  HandlerResult answer(const ReceivedRequest& received, AuthorizationCheck check) const;

  const StateStore state_;
  const double backupSeconds_;
  const platform::Date since_;
  std::mutex mutex_;  // one request at a time touches the state directory and record_
  RequestRecord record_;
};

}  // namespace dev_scheduler
