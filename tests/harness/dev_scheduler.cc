#include "harness/dev_scheduler.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "errors/lks_error.h"
#include "harness/files.h"
#include "scheduler/state_files.h"

namespace testing_support {
namespace {

using platform::Value;

std::string describe(const platform::ErrorRef& error) { return LKSError::localizedDescriptionForError(error); }

// The faults-file form of `error`: its cause nested under "Underlying".
platform::Dictionary errorEntry(const platform::Error& error) {
  platform::Dictionary entry{{dev_scheduler::kFaultKindKey, Value::string(dev_scheduler::kFaultReplyError)},
                             {dev_scheduler::kFaultDomainKey, Value::string(error.domain)},
                             {dev_scheduler::kFaultCodeKey, Value::integer(error.code)}};
  platform::Dictionary userInfo = error.userInfo;
  userInfo.erase(platform::NSUnderlyingErrorKey);
  entry.set(dev_scheduler::kFaultUserInfoKey, Value::dictionary(std::move(userInfo)));
  if (const platform::ErrorRef cause = error.underlyingError()) {
    entry.set(dev_scheduler::kFaultUnderlyingKey, Value::dictionary(errorEntry(*cause)));
  }
  return entry;
}

RecordedRequest recordedRequest(const platform::Dictionary& record) {
  RecordedRequest request;
  if (const platform::Integer* message = record.get(dev_scheduler::kRecordMessageKey).asInteger()) {
    request.message = message->int64Value();
  }
  request.payload = record.get(dev_scheduler::kRecordPayloadKey);
  request.payloadUnreadable = record.get(dev_scheduler::kRecordPayloadUnreadableKey).boolValue();
  request.authPresent = record.get(dev_scheduler::kRecordAuthPresentKey).boolValue();
  if (const std::optional<bool> valid = record.get(dev_scheduler::kRecordAuthValidKey).asBoolean()) {
    request.authValid = *valid;
  }
  request.uid = static_cast<uid_t>(record.get(dev_scheduler::kRecordPeerUIDKey).int64Value());
  request.pid = static_cast<pid_t>(record.get(dev_scheduler::kRecordPeerPIDKey).int64Value());
  return request;
}

// The mount namespace of the calling thread.
std::string mountNamespace() {
  char name[64] = {};
  return ::readlink("/proc/thread-self/ns/mnt", name, sizeof name - 1) > 0 ? name : "";
}

// The namespace the test program began in, taken as it is loaded, before any
// test enters a sandbox.
const std::string kStartingNamespace = mountNamespace();

// True when this thread has left the namespace the program began in (a sandbox).
bool inPrivateMountNamespace() { return !kStartingNamespace.empty() && mountNamespace() != kStartingNamespace; }

}  // namespace

SchedulerFault SchedulerFault::ofKind(const char* kind) {
  return SchedulerFault({{dev_scheduler::kFaultKindKey, Value::string(kind)}});
}

SchedulerFault SchedulerFault::replyPayload(platform::Value payload) {
  return SchedulerFault({{dev_scheduler::kFaultKindKey, Value::string(dev_scheduler::kFaultReplyPayload)},
                         {dev_scheduler::kFaultPayloadKey, std::move(payload)}});
}

SchedulerFault SchedulerFault::replyError(const platform::ErrorRef& error) { return SchedulerFault(errorEntry(*error)); }

SchedulerFault SchedulerFault::unparsablePayload() { return ofKind(dev_scheduler::kFaultUnparsablePayload); }

SchedulerFault SchedulerFault::unarchivableError() { return ofKind(dev_scheduler::kFaultUnarchivableError); }

SchedulerFault SchedulerFault::garbageError() { return ofKind(dev_scheduler::kFaultGarbageError); }

SchedulerFault SchedulerFault::closeConnection() { return ofKind(dev_scheduler::kFaultClose); }

SchedulerFault SchedulerFault::brokenFrame() { return ofKind(dev_scheduler::kFaultBrokenFrame); }

DevScheduler::DevScheduler(DevSchedulerOptions options) : options_(std::move(options)) { start(); }

DevScheduler::~DevScheduler() {
  if (serving_) stop();
}

RunResult DevScheduler::command(const std::string& command) const {
  std::vector<std::string> args = {command, "--state", stateDirectory()};
  if (!options_.socketDirectory.empty()) {
    args.insert(args.end(), {"--socket-dir", options_.socketDirectory});
  }
  if (options_.backupSeconds) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", *options_.backupSeconds);
    args.insert(args.end(), {"--backup-seconds", seconds});
  }
  return runScheduler(args);
}

bool DevScheduler::start() {
  if (options_.socketDirectory.empty() && !inPrivateMountNamespace()) {
    ADD_FAILURE() << "the development scheduler serves the system's service directory only inside a sandbox";
    return false;
  }
  const RunResult started = command("start");
  serving_ = started.exitStatus == 0;
  if (!serving_) {
    ADD_FAILURE() << "the development scheduler did not start (" << started.exitStatus << "): " << started.err;
  }
  return serving_;
}

bool DevScheduler::stop() {
  const RunResult stopped = command("stop");
  if (stopped.exitStatus != 0) {
    ADD_FAILURE() << "the development scheduler did not stop (" << stopped.exitStatus << "): " << stopped.err;
    return false;
  }
  serving_ = false;
  return true;
}

pid_t DevScheduler::pid() const {
  const RunResult status = command("status");
  return status.exitStatus == 0 ? static_cast<pid_t>(std::stol(status.out.substr(status.out.find('(') + 5))) : 0;
}

platform::Value DevScheduler::read(const char* file) const {
  bool missing = false;
  platform::ErrorRef error;
  platform::Value value = dev_scheduler::readStateFile(statePath(file), &missing, &error);
  if (!value && !missing) ADD_FAILURE() << describe(error);
  return value;
}

void DevScheduler::write(const char* file, const platform::Value& value) const {
  platform::ErrorRef error;
  if (!dev_scheduler::writeStateFile(statePath(file), value, &error)) ADD_FAILURE() << describe(error);
}

std::vector<RecordedRequest> DevScheduler::requests() const {
  std::vector<RecordedRequest> requests;
  const platform::Value records = read(dev_scheduler::kRequestsFile);
  if (const platform::Array* array = records.asArray()) {
    for (const platform::Value& record : *array) {
      if (const platform::Dictionary* entry = record.asDictionary()) requests.push_back(recordedRequest(*entry));
    }
  }
  return requests;
}

void DevScheduler::clearRequests() { ::unlink(statePath(dev_scheduler::kRequestsFile).c_str()); }

platform::Dictionary DevScheduler::settings() const {
  const platform::Value settings = read(dev_scheduler::kSettingsFile);
  return settings.asDictionary() ? *settings.asDictionary() : platform::Dictionary();
}

void DevScheduler::setSettings(const platform::Dictionary& settings) {
  write(dev_scheduler::kSettingsFile, Value::dictionary(settings));
}

void DevScheduler::setSetting(const std::string& key, platform::Value value) {
  platform::Dictionary changed = settings();
  changed.set(key, std::move(value));
  setSettings(changed);
}

void DevScheduler::setAvailableUpdate(const std::string& humanVersion, std::int64_t version) {
  write(dev_scheduler::kUpdateFile,
        Value::dictionary({{dev_scheduler::kUpdateHumanVersionKey, Value::string(humanVersion)},
                           {dev_scheduler::kUpdateVersionKey, Value::integer(version)}}));
}

void DevScheduler::clearAvailableUpdate() { ::unlink(statePath(dev_scheduler::kUpdateFile).c_str()); }

platform::Dictionary DevScheduler::activity() const {
  const platform::Value activity = read(dev_scheduler::kActivityFile);
  return activity.asDictionary() ? *activity.asDictionary() : platform::Dictionary();
}

void DevScheduler::setActivity(const platform::Dictionary& activity) {
  write(dev_scheduler::kActivityFile, Value::dictionary(activity));
}

platform::Dictionary DevScheduler::faults() const {
  const platform::Value faults = read(dev_scheduler::kFaultsFile);
  return faults.asDictionary() ? *faults.asDictionary() : platform::Dictionary();
}

void DevScheduler::setFault(QHVHelperMessage message, const SchedulerFault& fault) {
  platform::Dictionary changed = faults();
  changed.set(std::to_string(message), Value::dictionary(fault.entry()));
  write(dev_scheduler::kFaultsFile, Value::dictionary(std::move(changed)));
}

void DevScheduler::clearFault(QHVHelperMessage message) {
  platform::Dictionary changed = faults();
  changed.erase(std::to_string(message));
  write(dev_scheduler::kFaultsFile, Value::dictionary(std::move(changed)));
}

void DevScheduler::clearFaults() { ::unlink(statePath(dev_scheduler::kFaultsFile).c_str()); }

std::string DevScheduler::log() const { return readFile(statePath(dev_scheduler::kLogFile)).value_or(""); }

std::string schedulerPath() { return QHV_SCHEDULER_PATH; }

RunResult runScheduler(const std::vector<std::string>& args, const RunOptions& options) {
  return runProgram(schedulerPath(), args, options);
}

}  // namespace testing_support
