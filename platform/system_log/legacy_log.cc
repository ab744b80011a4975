#include "platform/system_log/legacy_log.h"

#include <syslog.h>

#include <atomic>
#include <mutex>

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

std::atomic<LegacyLogSink*> sinkForTesting{nullptr};

LegacyLogSink& currentSink() {
  if (LegacyLogSink* sink = sinkForTesting.load(std::memory_order_acquire)) return *sink;
  static auto* syslogSink = new SyslogSink();  // never destroyed: other threads may log at exit
  return *syslogSink;
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

void LegacyLogClient::send(const Dictionary& record) const { currentSink().send(facility_, record); }

void LegacyLogClient::setSinkForTesting(LegacyLogSink* sink) {
  sinkForTesting.store(sink, std::memory_order_release);
}

}  // namespace platform
