// The machine as the tool sees it in the demo and the end-to-end tests,
// without touching the real one: a private mount namespace whose root is a copy of the real root,
// every top-level directory bound in, except fresh, empty tmpfs mounts over
// /Library, /run (so /var/run/xpc and /var/run/authorization), /root and /home.
// The caller itself moves in, so that it reads the files the tool wrote at
// their real paths; children it starts inherit the sandbox.
//
// Needs root (mount namespaces, tmpfs, chroot). Single-threaded callers only:
// the namespace and root belong to the calling thread.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

namespace qhv_sandbox {

class Sandbox {
 public:
  // The unprivileged user of the sandbox (no password entry), and its home.
  static constexpr uid_t kUserId = 4242;
  static constexpr gid_t kGroupId = 4242;
  static constexpr const char* kUserHome = "/home/qhv-user";

  // Moves the calling thread into a new sandbox. Null, with `whyNot` set, when
  // this process cannot (not root, no mount namespaces).
  static std::unique_ptr<Sandbox> enter(std::string* whyNot);

  // Leaves: back to the real root and mount namespace; the sandbox's tmpfs
  // mounts vanish with the last process inside.
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

 private:
  Sandbox(int oldNamespace, int oldCwd) : oldNamespace_(oldNamespace), oldCwd_(oldCwd) {}

  int oldNamespace_;
  int oldCwd_;
};

}  // namespace qhv_sandbox
