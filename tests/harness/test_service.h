// A service for tests of XPC clients: listens as a named service in a private
// socket directory, on its own thread, and answers with a handler the test sets.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "harness/temp_dir.h"
#include "platform/xpc/listener.h"

namespace testing_support {

// Points every XPC client and listener of this process at a private directory
// while it lives.
class PrivateServiceDirectory {
 public:
  PrivateServiceDirectory();
  ~PrivateServiceDirectory();
  PrivateServiceDirectory(const PrivateServiceDirectory&) = delete;
  PrivateServiceDirectory& operator=(const PrivateServiceDirectory&) = delete;

 private:
  TempDir directory_;
};

class TestService {
 public:
  using Handler = platform::XPCListener::RequestHandler;

  // Serves `name` with `handler` until destroyed; fails the test when it cannot listen.
  TestService(const std::string& name, Handler handler);
  ~TestService();
  TestService(const TestService&) = delete;
  TestService& operator=(const TestService&) = delete;

  // How many clients connected so far.
  int connections() const { return connections_.load(); }

  // A handler that answers every request with {"echo": its "message"}.
  static Handler echo();

 private:
  std::unique_ptr<platform::XPCListener> listener_;
  std::atomic<int> connections_{0};
  std::thread thread_;
};

}  // namespace testing_support
