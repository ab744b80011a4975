// qhv-sandbox: runs one command inside a fresh sandbox (see sandbox.h), for the
// demo and for trying the tool without touching the machine.
//   qhv-sandbox <program> [arguments...]
#include <unistd.h>

#include <cstdio>
#include <string>

#include "sandbox/sandbox.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: qhv-sandbox <program> [arguments...]\n");
    return 2;
  }
  std::string whyNot;
  auto sandbox = qhv_sandbox::Sandbox::enter(&whyNot);
  if (!sandbox) {
    std::fprintf(stderr, "qhv-sandbox: %s\n", whyNot.c_str());
    return 1;
  }
  ::execvp(argv[1], argv + 1);
  std::perror(argv[1]);
  return 127;
}
