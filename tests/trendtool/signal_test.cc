// trendtool export, ended by a signal while it works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "tests/support/database_file.h"
#include "tests/support/fake_server.h"
#include "tests/support/process.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

bool is_unfinished(const std::string& name) { return name.starts_with("out.csv.part"); }

/// Waits until the export writes its file. Returns the names of the files then.
std::vector<std::string> wait_for_file(const std::string& folder) {
  std::vector<std::string> names;
  for (int i = 0; i < 4000 && std::none_of(names.begin(), names.end(), is_unfinished); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    names = list_folder(folder);
  }
  return names;
}

TEST(TrendtoolExportAndASignal, LeavesTheOldFileAndNoOther) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const std::string file = folder.file("out.csv");
  run_sql(db,
          std::string("BEGIN;") + LOOSE_SCHEMA + IDENTITY + CATALOGUE + insert_row(1) + "COMMIT;");
  write_file(file, "old");
  for (const int number : {SIGINT, SIGTERM}) {
    // The export asks for display names when it knows what to export. Then the database is locked,
    // so that it waits for the rows, with its file open, until the signal comes.
    std::promise<void> asked;
    std::promise<void> locked;
    const FakeServer server(folder.file("cds.sock"), [&](int) {
      asked.set_value();
      locked.get_future().wait();
    });
    const pid_t child = start_process(
        tool_command("tests/trendtool_with_local_cds",
                     {"export", "-x", "trend.db", "-d", "/plant", "-n", "-f", "out.csv"}),
        {}, enter(folder.path()));
    asked.get_future().wait();
    run_sql(db, "BEGIN EXCLUSIVE", [&] {
      locked.set_value();
      EXPECT_THAT(wait_for_file(folder.path()), Contains(StartsWith("out.csv.part")));
      kill(child, number);
      EXPECT_EQ(wait_for(child), 128 + number);
    });
    EXPECT_THAT(list_folder(folder.path()), ElementsAre("cds.sock", "out.csv", "trend.db"));
    EXPECT_EQ(read_file(file), "old");
    std::filesystem::remove(folder.file("cds.sock"));
  }
}

}  // namespace
