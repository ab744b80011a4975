#include "platform/system_log/legacy_log.h"

#include <syslog.h>

#include <mutex>

#include "platform/foundation/machine_seam.h"

namespace platform {
namespace {

struct LevelPriority {
  const char* level;
  int priority;
};
constexpr LevelPriority kPriorities[] = {
    {"Error", LOG_ERR},
    {"Warning", LOG_WARNING},
};
constexpr int kOtherLevelPriority = LOG_NOTICE;

int priorityForLevel(const Value& level) {
  const std::string* text = level.asString();
  for (const LevelPriority& row : kPriorities) {
    if (text && *text == row.level) return row.priority;
  }
  return kOtherLevelPriority;
}

MachineSeam<LegacyLogSink>& seam() {
  static MachineSeam<LegacyLogSink> instance(*new SyslogSink());  // never destroyed: other threads may log at exit
  return instance;
}

}  // namespace

void SyslogSink::send(const std::string& facility, const Dictionary& record) {
  // openlog keeps the identity's pointer, so the text lives here; it changes
  // only when a client of another facility sends.
  static std::mutex mutex;
  static std::string* identity = nullptr;
  std::lock_guard lock(mutex);
  if (!identity || *identity != facility) {
    std::string* previous = identity;
    identity = new std::string(facility);
    openlog(identity->c_str(), LOG_PID, LOG_USER);
    delete previous;
  }
  const std::string* message = record.get(ASL_KEY_MSG).asString();
  syslog(priorityForLevel(record.get(ASL_KEY_LEVEL)), "%s", message ? message->c_str() : "");
}

LegacyLogSink& LegacyLogSink::current() { return seam().get(); }

LegacyLogSink* LegacyLogSink::setForTesting(LegacyLogSink* sink) { return seam().install(sink); }

void LegacyLogClient::send(const Dictionary& record) const { LegacyLogSink::current().send(facility_, record); }

}  // namespace platform
