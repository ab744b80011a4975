#include "support/spawner.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "errors/lks_error.h"
#include "platform/dispatch/process_exit_source.h"

extern char** environ;

namespace {

platform::ErrorRef spawn_error(const std::string& tool, int number) {
  return LKSError::errorWithDomain(
      LKSSpawnerErrorDomain, LKSSpawnerErrorSpawn,
      {{LKSErrorToolKey, platform::Value::string(tool)}, {LKSErrorErrnoKey, platform::Value::integer(number)}});
}

// Starts the tool with no file actions and no attributes, so it inherits the
// standard streams, the process group and the signal mask. 0 or an error number.
int start_tool(LKSToolArguments argv, pid_t* child) {
  // posix_spawn does not write to the vector; its prototype predates const.
  return ::posix_spawn(child, argv[0], nullptr, nullptr, const_cast<char* const*>(argv), environ);
}

// Reaps the child; 0 with its status word, or the error number of a wait that failed.
int reap(pid_t child, int* status) {
  while (::waitpid(child, status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// Null for a tool that exited with status 0, otherwise the error that says how it ended.
platform::ErrorRef outcome_error(const std::string& tool, int status) {
  if (WIFEXITED(status)) {
    if (WEXITSTATUS(status) == 0) return nullptr;
    return LKSError::errorWithDomain(LKSSpawnerErrorDomain, LKSSpawnerErrorExitStatus,
                                     {{LKSErrorToolKey, platform::Value::string(tool)},
                                      {LKSErrorExitStatusKey, platform::Value::integer(WEXITSTATUS(status))}});
  }
  // Without WUNTRACED a stopped child is never reported: what is not an exit is a signal.
  return LKSError::errorWithDomain(
      LKSSpawnerErrorDomain, LKSSpawnerErrorSignal,
      {{LKSErrorToolKey, platform::Value::string(tool)}, {LKSErrorSignalKey, platform::Value::integer(WTERMSIG(status))}});
}

// The outcome of a started child once it has ended, as an error or null.
platform::ErrorRef finish(const std::string& tool, pid_t child) {
  int status = 0;
  if (const int failure = reap(child, &status)) return spawn_error(tool, failure);
  return outcome_error(tool, status);
}

}  // namespace

bool spawn_tool(LKSToolArguments argv, platform::ErrorRef* error) {
  pid_t child = 0;
  int status = 0;
  int failure = start_tool(argv, &child);
  if (failure == 0) failure = reap(child, &status);
  if (failure != 0) {
    if (error) *error = spawn_error(argv[0], failure);
    return false;
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  if (error) *error = outcome_error(argv[0], status);
  return false;
}

void spawn_tool_async(LKSToolArguments argv, platform::QueueRef queue,
                      std::function<void(platform::ErrorRef)> completion) {
  std::string tool = argv[0];
  pid_t child = 0;
  if (const int failure = start_tool(argv, &child)) {
    queue->async([tool = std::move(tool), failure, completion = std::move(completion)] {
      completion(spawn_error(tool, failure));
    });
    return;
  }
  platform::ProcessExitSourceRef source = platform::ProcessExitSource::create(child, queue);
  // The handler holds its source until it cancels it, which releases the
  // handler and with it the tool name and the completion.
  source->setEventHandler([source, tool = std::move(tool), child, completion = std::move(completion)] {
    completion(finish(tool, child));
    source->cancel();
  });
  source->resume();
}
