// The D-Bus system bus, reached through libsystemd's sd-bus, which is loaded
// when a connection is first asked for: no run of the tool that never asks
// pays for it. Used by the stand-ins for power assertions and distributed
// notifications, whose failures the tool ignores.
#pragma once

#include <cstdint>
#include <memory>

namespace platform {

class SystemBus {
 public:
  // A connection to the system bus; null when libsystemd cannot be loaded or
  // the bus cannot be reached.
  static std::unique_ptr<SystemBus> connect();
  // Sends whatever is queued, then closes the connection.
  ~SystemBus();
  SystemBus(const SystemBus&) = delete;
  SystemBus& operator=(const SystemBus&) = delete;

  // Takes an inhibitor lock from the login manager (Inhibit(what, who, why,
  // mode)). The lock's descriptor, owned by the caller, which holds the lock
  // until it is closed; -1 when the lock was refused or the call failed.
  int inhibit(const char* what, const char* who, const char* why, const char* mode);

  // Broadcasts the signal `interface`.`member` from object `path` with the
  // arguments (text, text, unsigned 32-bit). False when it could not be queued.
  bool emitSignal(const char* path, const char* interface, const char* member, const char* first,
                  const char* second, std::uint32_t third);

 private:
  struct Connection;
  explicit SystemBus(std::unique_ptr<Connection> connection);
  std::unique_ptr<Connection> connection_;
};

}  // namespace platform
