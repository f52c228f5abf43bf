// Command lines of trendcsv, an argument per line, on a database that stays the same.
#include <sqlite3.h>

#include "cli/options.h"
#include "cli/run.h"
#include "tests/fuzz/fixture.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/process.h"
#include "tests/support/time_zone.h"

namespace {

Captured run(std::vector<std::string>& words) {
  const auto argv = to_argv(words);
  const int argc = static_cast<int>(words.size());
  const Captured result = capture([&] { return run_program(argc, argv.data()); });
  sqlite3_soft_heap_limit64(0);  // that of -sl stays otherwise
  return result;
}

/// Returns the options that are typed, and sets `status` to what `parse_args` returns.
DumpOptions parse(std::vector<std::string>& words, int& status) {
  DumpOptions options;
  const auto argv = to_argv(words);
  status = capture([&] {
             return parse_args(options, static_cast<int>(words.size()), argv.data());
           }).status;
  return options;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words = {"trendcsv"};
  if (!add_arguments({data, size}, words)) return -1;
  static const TimeZone ZONE(TimeZone::CENTRAL_EUROPE);
  const std::string& database = make_fixture();

  int status = 0;
  const DumpOptions options = parse(words, status);
  // Deliberate: a dump without chunks and without a limit that finds no row never ends.
  if (status == 0 && options.chunk_size == 0 && options.max_records == 0) return -1;
  const Captured whole = run(words);
  demand(whole.status == (status > 0 ? 0 : whole.status & 1), "an unknown exit status");
  demand_equal(read_file("trend.db"), database, "the database has changed");
  if (status != 0 || options.chunk_size == 0) return 0;

  // The rows are the same in chunks of any size.
  words.insert(words.end(), {"-c", "3"});
  const Captured chunks = run(words);
  demand_equal(chunks.out, whole.out, "other rows in chunks");
  demand_equal(chunks.err, whole.err, "other messages in chunks");
  demand(chunks.status == whole.status, "another exit status in chunks");
  return 0;
}
