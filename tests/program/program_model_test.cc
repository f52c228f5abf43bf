// Dumps of random logs under random options, against the model. Compiled twice: for databases in
// files, and for archives.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/model.h"
#ifdef TRENDCSV_ARCHIVE_TESTS
#include "tests/support/archive_server.h"
#endif

namespace {

/// A time near those of the rows, but not near a clock change.
std::int64_t random_time(Random& random, const ModelLog& log, const Zone& zone) {
  if (log.rows.empty()) return 86'400;
  std::int64_t time = log.rows[pick(random, static_cast<std::uint32_t>(log.rows.size()))].time;
  switch (pick(random, 3)) {
    case 0:
      break;
    case 1:
      time += 60 * std::int64_t{pick(random, 600)};
      break;
    default:
      time -= std::min<std::int64_t>(time - 60, 60 * std::int64_t{pick(random, 600)});
  }
  while (zone.is_near_change(time)) time += 3600;
  return time;
}

DumpRequest random_request(Random& random, const ModelLog& log) {
  const auto is_lucky = [&](std::uint32_t chances) { return pick(random, chances) == 0; };
  const auto param = [&] {
    return log.params[pick(random, static_cast<std::uint32_t>(log.params.size()))].path;
  };
  const auto interval = [&] {
    return log.minutes[pick(random, static_cast<std::uint32_t>(log.minutes.size()))];
  };
  DumpRequest request;
  request.zone = ZONES[pick(random, 4)];
  request.use_utc = is_lucky(3);
  if (is_lucky(3)) {
    for (std::uint32_t i = 0; i <= pick(random, 3); ++i) {
      const std::string path = param();
      const auto times_typed = std::count(request.params.begin(), request.params.end(), path);
      if (times_typed == 0) request.params.push_back(path);
    }
    // One name may be typed twice.
    if (is_lucky(3)) request.params.push_back(request.params.front());
  }
  if (is_lucky(2)) {
    for (std::uint32_t i = 0; i <= pick(random, 3); ++i) {
      request.intervals.push_back(is_lucky(5) ? 0 : interval());
    }
  }
  if (is_lucky(2)) request.input_format = "%d.%m.%Y %T";
  const auto whole_minutes = [&](std::int64_t time) {
    return request.input_format.empty() ? time - time % 60 : time;
  };
  const Zone& zone = request.use_utc ? UTC : request.zone;
  if (is_lucky(3)) request.start = whole_minutes(random_time(random, log, zone));
  if (is_lucky(3)) request.end = whole_minutes(random_time(random, log, zone));
  if (is_lucky(3)) request.max_records = 1 + pick(random, 60);
  if (is_lucky(3)) request.offset = 1 + pick(random, 40);
  if (is_lucky(2)) request.chunk_size = pick(random, 20);
  request.ascending = is_lucky(2);
  request.reverse = is_lucky(3);
  request.interval_begin = is_lucky(4);
  request.percent_valid = is_lucky(2);
  request.header = !is_lucky(5);
  if (is_lucky(3)) request.date_format = "%d.%m.%Y";
  if (is_lucky(2)) request.time_format = is_lucky(2) ? "%T" : "%H h %% of %m/%Y";
  // Without chunks and without a limit, a dump that finds no row never ends.
  if (request.chunk_size == 0U && request.max_records == 0) {
    DumpRequest bare = request;
    bare.header = false;
    if (expected_dump(log, bare).first.empty()) request.chunk_size = 1;
  }
  return request;
}

std::string text_of(const std::vector<std::string>& arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += "'" + argument + "' ";
  return text;
}

#ifdef TRENDCSV_ARCHIVE_TESTS
// An archive takes longer to make than a file.
constexpr int LOGS = 40;

/// An archive on a server that all tests share.
class Database {
 public:
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_ = server().make_archive();
};
#else
constexpr int LOGS = 120;

class Database {
 public:
  [[nodiscard]] std::string path() const { return folder_.file("trend.db"); }

 private:
  TemporaryFolder folder_;
};
#endif

TEST(ProgramModel, DumpsRandomLogsAsTheModelDoes) {
  Random random(3);
  int rows_seen = 0;
  const int rounds = random_rounds(LOGS);
  for (int i = 0; i < rounds; ++i) {
    const ModelLog log = random_log(random, pick(random, 2) == 0);
    const Database database;
    const std::string db = database.path();
    record(log, db);
    for (int j = 0; j < 8; ++j) {
      const DumpRequest request = random_request(random, log);
      const auto [text, exit_status] = expected_dump(log, request);
      const ProcessResult result = run_dump_tool(db, log.device, request);
      SCOPED_TRACE(std::string(request.zone.name) + " " +
                   text_of(request.arguments(db, log.device)));
      ASSERT_EQ(result.err, "");
      ASSERT_EQ(result.out, text);
      ASSERT_EQ(result.exit_status, exit_status);
      rows_seen += static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    }
  }
  EXPECT_GT(rows_seen, 40 * rounds);
}

TEST(ProgramModel, PrintsTheSameRowsInChunksOfAnySize) {
  Random random(4);
  for (int i = 0; i < random_rounds(LOGS / 5); ++i) {
    const ModelLog log = random_log(random, false);
    const Database database;
    const std::string db = database.path();
    record(log, db);
    DumpRequest request = random_request(random, log);
    request.chunk_size = 1'000'000;
    const ProcessResult whole = run_dump_tool(db, log.device, request);
    for (const std::uint32_t size : {1U, 2U, 3U, 7U, 10U, 30U, 511U, 2'147'483'647U}) {
      request.chunk_size = size;
      const ProcessResult result = run_dump_tool(db, log.device, request);
      SCOPED_TRACE(text_of(request.arguments(db, log.device)));
      ASSERT_EQ(result.out, whole.out);
      ASSERT_EQ(result.exit_status, whole.exit_status);
      ASSERT_EQ(result.err, "");
    }
  }
}

}  // namespace
