// Runs trendtool in the process of the test.
#pragma once

#include <string>
#include <vector>

#include "tests/support/statement_faults.h"
#include "tests/support/streams.h"
#include "trendtool/run.h"

/// Runs trendtool with these arguments in this process, in which it must not end by a signal.
inline ProcessResult run_here(std::vector<std::string> words) {
  words.insert(words.begin(), "trendtool");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return capture([&] { return run_trendtool(static_cast<int>(words.size()), arguments.data()); });
}

/// Has the statements watched that trendtool then runs. May be called again.
inline void watch_statements() {
  static const bool IS_WATCHED = [] {
    install_statement_faults();
    skip_syncs();
    return true;
  }();
  static_cast<void>(IS_WATCHED);
}
