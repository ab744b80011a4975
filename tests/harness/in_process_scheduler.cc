#include "harness/in_process_scheduler.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "authorization/authorization_manager.h"
#include "errors/lks_error.h"
#include "messaging/helper_messager.h"
#include "platform/foundation/clock.h"
#include "scheduler/command_line.h"
#include "scheduler/scheduler_log.h"
#include "scheduler/state_files.h"

namespace testing_support {

InProcessScheduler::InProcessScheduler()
    : services_({authorization_.file("authorization"), authorization_.file("grants")}),
      log_(::open(statePath(dev_scheduler::kLogFile).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)),
      processor_(dev_scheduler::StateStore(stateDirectory()), dev_scheduler::kDefaultBackupSeconds,
                 platform::Clock::current().now()) {
  dev_scheduler::setLogDescriptor(log_);
  platform::ErrorRef error;
  if (!dev_scheduler::StateStore(stateDirectory()).settings(&error)) {
    ADD_FAILURE() << "no default settings: " << LKSError::localizedDescriptionForError(error);
  }
  service_.emplace(QHVHelperServiceName,
                   [this](const std::shared_ptr<platform::XPCPeer>& peer, platform::XPCFrame request) {
                     processor_.process(*peer, request);
                   });
}

InProcessScheduler::~InProcessScheduler() {
  stop();
  // The tool's authorization was granted by these services; it goes with them.
  LKSAuthorizationManager::sharedManager().invalidate();
  dev_scheduler::setLogDescriptor(STDERR_FILENO);
  ::close(log_);
}

}  // namespace testing_support
