// Runs trendtool in the process of the test.
#pragma once

#include <sqlite3.h>

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
    // Whether the data is on the disk does not matter to these tests, and takes most of their time.
    const auto no_sync = [](int /*file*/, int /*is_full*/, int /*is_data*/) { return 0; };
    sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
    vfs->xSetSystemCall(vfs, "fsync", reinterpret_cast<sqlite3_syscall_ptr>(+no_sync));
    return true;
  }();
  static_cast<void>(IS_WATCHED);
}
