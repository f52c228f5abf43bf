// Lets a call of the system fail in a program that a test runs, see tests/fault/failing_calls.cc.
#pragma once

#include <string>

#include "tests/support/process.h"

/// Which calls fail, and how.
struct FailingCall {
  const char* call = nullptr;
  int error = 0;       ///< 0 for half of the bytes
  bool lasts = false;  ///< whether all later calls fail, too
};

/// The environment in which a program's call with this number fails, counted from 1. Then there is
/// a file `mark`. The test program is compiled with FAILING_CALLS.
inline Environment make_environment(const FailingCall& failing, int number,
                                    const std::string& mark) {
  Environment environment = {{"TZ", "UTC0"},
                             {"LD_PRELOAD", FAILING_CALLS},
                             {"FAIL_CALL", failing.call},
                             {"FAIL_NUMBER", std::to_string(number)},
                             {"FAIL_ERROR", std::to_string(failing.error)},
                             {"FAIL_MARK", mark}};
  if (failing.lasts) environment.push_back({"FAIL_LASTS", "1"});
  return environment;
}
