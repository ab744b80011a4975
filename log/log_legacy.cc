// The legacy-log sink: one message record per entry, sent one at a time on the
// queue "com.larkspan.lkslog.asl", made on the first entry.
#include <atomic>
#include <mutex>

#include "log/log.h"
#include "log/log_message.h"
#include "log/log_sinks.h"
#include "platform/system_log/legacy_log.h"
#include "support/queue.h"

namespace {

// Set by LKSLogInit before any other thread runs; null when the unified log is used.
platform::LegacyLogClient* _client = nullptr;

// Made once, on the first entry, and never destroyed: threads may still log
// while the process exits.
std::once_flag queueOnce;
std::atomic<platform::QueueRef*> _queue{nullptr};

platform::SerialQueue& legacyQueue() {
  std::call_once(queueOnce, [] {
    _queue.store(new platform::QueueRef(LKSQueueContextCreate("com.larkspan.lkslog.asl")));
  });
  return **_queue.load();
}

}  // namespace

namespace lks_log_internal {

void openLegacyClient(const char* subsystem) {
  _client = new platform::LegacyLogClient(subsystem ? subsystem : "");
}

void resetLegacyClientForTesting() {
  delete _client;
  _client = nullptr;
}

void sendToLegacyLog(std::uint8_t level, const char* format, std::span<const platform::FormatArg> args) {
  platform::SerialQueue& queue = legacyQueue();
  const std::optional<std::string> message = formatMessage(format, args);
  if (!message) return;
  platform::Dictionary record;
  record.set(platform::ASL_KEY_LEVEL, platform::Value::string(level == LKSLogLevelError ? "Error" : "Warning"));
  record.set(platform::ASL_KEY_MSG, platform::Value::string(*message));
  queue.sync([&] {
    if (_client) _client->send(record);
  });
}

}  // namespace lks_log_internal

void _LKSLogSync() {
  if (platform::QueueRef* queue = _queue.load()) (*queue)->sync([] {});
}
