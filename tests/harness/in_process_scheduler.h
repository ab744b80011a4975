// The development scheduler serving in the test's own process: its request
// processor behind a test service in a private socket directory, with private
// Authorization Services (the default rules, which grant root, and a grants
// directory of the test's user). So the tool's code, run in the same process,
// obtains rights and reaches the service as it does on a real system, whoever
// runs the tests; a test acts as root or not through the user-id seam.
#pragma once

#include <optional>

#include "harness/installed.h"
#include "harness/scheduler_state.h"
#include "harness/temp_dir.h"
#include "harness/test_service.h"
#include "platform/authorization/services.h"
#include "scheduler/request_processor.h"

namespace testing_support {

class InProcessScheduler : public SchedulerState {
 public:
  // Serving, with the scheduler's default settings stored.
  InProcessScheduler();
  // Stopped; the process-wide Authorization Services and socket directory restored.
  ~InProcessScheduler();

  // Stops serving: from now on the tool finds no service.
  void stop() { service_.reset(); }

 private:
  PrivateServiceDirectory sockets_;
  TempDir authorization_;
  platform::LinuxAuthorizationServices services_;
  const Installed<platform::AuthorizationServices> installedServices_{&services_};
  int log_;  // the scheduler's own lines, kept apart from the tool's standard error
  dev_scheduler::RequestProcessor processor_;
  std::optional<TestService> service_;
};

}  // namespace testing_support
