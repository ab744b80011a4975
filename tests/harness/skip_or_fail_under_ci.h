// A test that cannot run on this machine (it needs root, or private mount
// namespaces) is skipped with one line saying why; under CI (CI set in the
// environment) it fails instead, so that a CI that cannot run it is never green
// by skipping it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

#define SKIP_OR_FAIL_UNDER_CI(why)                \
  do {                                            \
    if (std::getenv("CI")) GTEST_FAIL() << (why); \
    GTEST_SKIP() << (why);                        \
  } while (0)
