#include "platform/foundation/system_bus.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <mutex>

namespace platform {
namespace {

// sd-bus's objects, opaque here; the prototypes are those of <systemd/sd-bus.h>.
struct sd_bus;
struct sd_bus_message;
struct sd_bus_error;

struct SdBus {
  int (*open_system)(sd_bus** bus);
  int (*call_method)(sd_bus* bus, const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...);
  int (*message_read)(sd_bus_message* message, const char* types, ...);
  sd_bus_message* (*message_unref)(sd_bus_message* message);
  int (*emit_signal)(sd_bus* bus, const char* path, const char* interface, const char* member,
                     const char* types, ...);
  sd_bus* (*flush_close_unref)(sd_bus* bus);
};

template <typename Function>
bool resolve(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(::dlsym(library, name));
  return *function != nullptr;
}

// The library's functions, or null when it or one of them is missing. Loaded
// once, kept for the life of the process.
const SdBus* sdBus() {
  static std::once_flag once;
  static SdBus functions;
  static bool loaded = false;
  std::call_once(once, [] {
    void* library = ::dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (!library) return;
    loaded = resolve(library, "sd_bus_open_system", &functions.open_system) &&
             resolve(library, "sd_bus_call_method", &functions.call_method) &&
             resolve(library, "sd_bus_message_read", &functions.message_read) &&
             resolve(library, "sd_bus_message_unref", &functions.message_unref) &&
             resolve(library, "sd_bus_emit_signal", &functions.emit_signal) &&
             resolve(library, "sd_bus_flush_close_unref", &functions.flush_close_unref);
  });
  return loaded ? &functions : nullptr;
}

}  // namespace

struct SystemBus::Connection {
  Connection(const SdBus& loaded, sd_bus* opened) : functions(loaded), bus(opened) {}
  const SdBus& functions;
  sd_bus* bus;
};

std::unique_ptr<SystemBus> SystemBus::connect() {
  const SdBus* functions = sdBus();
  if (!functions) return nullptr;
  sd_bus* bus = nullptr;
  if (functions->open_system(&bus) < 0) return nullptr;
  return std::unique_ptr<SystemBus>(new SystemBus(std::make_unique<Connection>(*functions, bus)));
}

SystemBus::SystemBus(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {}

SystemBus::~SystemBus() { connection_->functions.flush_close_unref(connection_->bus); }

int SystemBus::inhibit(const char* what, const char* who, const char* why, const char* mode) {
  const SdBus& sd = connection_->functions;
  sd_bus_message* reply = nullptr;
  if (sd.call_method(connection_->bus, "org.freedesktop.login1", "/org/freedesktop/login1",
                     "org.freedesktop.login1.Manager", "Inhibit", nullptr, &reply, "ssss", what, who, why,
                     mode) < 0) {
    return -1;
  }
  // The descriptor belongs to the reply: keep a copy of it.
  int borrowed = -1;
  const int lock = sd.message_read(reply, "h", &borrowed) >= 0 ? ::fcntl(borrowed, F_DUPFD_CLOEXEC, 3) : -1;
  sd.message_unref(reply);
  return lock;
}

bool SystemBus::emitSignal(const char* path, const char* interface, const char* member, const char* first,
                           const char* second, std::uint32_t third) {
  return connection_->functions.emit_signal(connection_->bus, path, interface, member, "ssu", first, second,
                                            third) >= 0;
}

}  // namespace platform
