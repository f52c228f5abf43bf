// Command lines of trendtool, an argument per line. After an empty line, the rest is standard
// input.
#include <csignal>
#include <cstdlib>

#include "tests/fuzz/fixture.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/process.h"
#include "tests/support/recorded_rows.h"
#include "tests/support/time_zone.h"
#include "trendtool/run.h"

namespace {

/// Starts no other program: where gnuplot is looked for, it is not.
void hide_programs() { setenv("PATH", "/nonexistent", 1); }

/// The program has set its own reactions to signals.
void reset_signals() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
}

bool is_database(const std::string& content) { return content.starts_with("SQLite format 3"); }

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t end = text.find("\n\n");
  const std::string input(end == text.npos ? "" : text.substr(end + 2));
  std::vector<std::string> words = {"trendtool"};
  if (!add_arguments({data, std::min(end, size)}, words)) return -1;
  hide_programs();
  static const TimeZone ZONE(TimeZone::CENTRAL_EUROPE);
  const std::string& database = make_fixture();

  auto argv = to_argv(words);
  const Captured result =
      capture([&] { return run_trendtool(static_cast<int>(words.size()), argv.data()); }, input);
  reset_signals();
  demand(result.status >= 0 && result.status <= 2, "an unknown exit status");
  demand(result.status == 0 || !result.err.empty(), "a failure without a message");
  if (result.status == 2)
    demand_equal(read_file("trend.db"), database, "wrong usage, yet a change");

  // Whatever was done, a database stays one.
  const std::string after = read_file("trend.db");
  if (after == database || !is_database(after)) return 0;
  try {
    static_cast<void>(read_recorded_rows("trend.db"));
  } catch (const std::exception& error) {
    demand(false, std::string("the database is damaged now: ") + error.what());
  }
  return 0;
}
