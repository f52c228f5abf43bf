// Compares the retrieval under all combinations of its options with two models. One follows the
// rules query by query. The other knows only which rows are to be printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "output/retrieval.h"
#include "tests/support/process.h"
#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"
#include "tests/support/time_zone.h"

namespace {

/// The times of rows.
using Times = std::vector<long>;

struct Case {
  Times log;  ///< ascending
  TimeRange range = {-1, -1};
  long limit = 0;
  long skip = 0;
  std::uint32_t chunk = 512;
  bool ascending = false;
  bool reverse = false;
  Statuses statuses = {};
};

std::ostream& operator<<(std::ostream& stream, const Case& c) {
  stream << c.log.size() << " rows, range " << c.range.first << ".." << c.range.second << ", -m "
         << c.limit << " -o " << c.skip << " -c " << c.chunk << (c.ascending ? " -a" : "")
         << (c.reverse ? " -r" : "");
  for (const auto& [call, status] : c.statuses) stream << ", query " << call << ": " << status;
  return stream;
}

/// What a retrieval asked for, printed and returned.
struct Walk {
  std::vector<Query> queries;
  Times rows;
  int result = 0;

  bool operator==(const Walk&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Walk& walk) {
  stream << "result " << walk.result << ", rows";
  for (const long row : walk.rows) stream << ' ' << row;
  for (const Query& query : walk.queries) stream << "\n  " << query;
  return stream;
}

/// The rows of `log` within `range`, in ascending or descending order.
Times rows_of(const Times& log, const TimeRange& range, bool ascending) {
  Times rows;
  for (const long time : log) {
    if (range.first != -1 && time < range.first) continue;
    if (range.second != -1 && time > range.second) continue;
    rows.insert(ascending ? rows.end() : rows.begin(), time);
  }
  return rows;
}

/// Follows the rules of the retrieval, one query at a time.
class Model {
 public:
  explicit Model(const Case& c) : case_(c), range_(c.range), skip_(c.skip) {}

  Walk run() {
    walk_.result = narrow();
    if (walk_.result == 0) walk_.result = fetch_all();
    return walk_;
  }

 private:
  /// Makes one query. Returns false if it fails.
  bool ask(long count, long offset, bool ascending) {
    walk_.queries.push_back(
        {range_, static_cast<unsigned>(count), static_cast<unsigned>(offset), ascending, true});
    found_ = rows_of(case_.log, range_, ascending);
    for (long i = 0; i < offset && !found_.empty(); ++i) found_.erase(found_.begin());
    while (count != 0 && found_.size() > static_cast<std::size_t>(count)) found_.pop_back();
    const auto status = case_.statuses.find(static_cast<int>(walk_.queries.size()));
    status_ = status == case_.statuses.end() ? 0 : status->second;
    return status_ >= 0;
  }

  int narrow() {
    if (case_.chunk == 0) return 0;
    if (skip_ != 0) {
      if (!ask(1, skip_, case_.ascending)) return -1;
      if (found_.empty()) return 0;
      if (case_.ascending) range_.first = found_.at(0);
      if (!case_.ascending) range_.second = found_.at(0);
      skip_ = 0;
    }
    if (case_.limit == 0) return 0;
    if (!ask(1, case_.limit, case_.ascending)) return -1;
    if (found_.empty()) return 0;
    if (case_.ascending) range_.second = found_.at(0) - 1;
    if (!case_.ascending) range_.first = found_.at(0) + 1;
    return status_;
  }

  int fetch_all() {
    const bool oldest_first = case_.ascending ? !case_.reverse : case_.reverse;
    long left = case_.limit;
    while (case_.limit == 0 || left > 0) {
      long count = case_.chunk;
      if (case_.limit != 0) count = case_.chunk == 0 ? left : std::min<long>(left, case_.chunk);
      if (!ask(count, skip_, oldest_first)) return -1;
      skip_ = 0;
      walk_.rows.insert(walk_.rows.end(), found_.begin(), found_.end());
      if (!found_.empty() && oldest_first) range_.first = found_.back() + 1;
      if (!found_.empty() && !oldest_first) range_.second = found_.back() - 1;
      if (found_.size() != static_cast<std::size_t>(count)) return 1;
      left -= count;
    }
    return 0;
  }

  const Case& case_;
  TimeRange range_;
  long skip_;
  Times found_;
  int status_ = 0;
  Walk walk_;
};

/// The rows that are to be printed if no query fails.
Times wanted_rows(const Case& c) {
  const bool oldest_first = c.ascending != c.reverse;
  const bool is_counted_ascending = c.chunk == 0 ? oldest_first : c.ascending;
  Times rows = rows_of(c.log, c.range, is_counted_ascending);
  const std::size_t skipped = std::min(rows.size(), static_cast<std::size_t>(c.skip));
  // Without chunks and a limit, a query that skips all rows is followed by one that skips none.
  const bool starts_over = c.chunk == 0 && c.limit == 0 && skipped == rows.size();
  if (!starts_over) rows.erase(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(skipped));
  if (c.limit != 0 && rows.size() > static_cast<std::size_t>(c.limit)) {
    rows.resize(static_cast<std::size_t>(c.limit));
  }
  if (is_counted_ascending != oldest_first) std::reverse(rows.begin(), rows.end());
  return rows;
}

/// What the code under test does.
Walk actual_walk(const Case& c) {
  trend_log_script() = {};
  for (const long time : c.log) trend_log_script().snapshots.push_back(make_snapshot(time));
  trend_log_script().query_statuses = c.statuses;
  DumpOptions options;
  options.output_date_format = "%s";
  options.max_records = c.limit;
  options.offset = c.skip;
  options.chunk_size = c.chunk;
  options.ascending = c.ascending;
  options.reverse = c.reverse;
  DumpContext context;
  context.range_start = c.range.first;
  context.range_end = c.range.second;
  context.skip = static_cast<unsigned long>(c.skip);
  context.out = std::tmpfile();
  Walk walk;
  walk.result = dump_rows(context, options);
  walk.queries = trend_log_script().queries;
  const std::string text = read_stream(context.out);
  for (std::size_t i = 0; i < text.size(); i = text.find('\n', i) + 1) {
    walk.rows.push_back(std::stol(text.substr(i)));
  }
  return walk;
}

/// Whether the retrieval would never end.
bool is_endless(const Case& c) {
  return c.chunk == 0 && c.limit == 0 && rows_of(c.log, c.range, true).empty();
}

class RetrievalWalk : public testing::Test {
 protected:
  RetrievalWalk() : zone_(TimeZone::UTC) {}

  /// Compares one case with both models. Returns false after a failure, so that the test can stop
  /// instead of reporting the same failure for other cases.
  static bool check(Case c) {
    constexpr int ENOUGH = 4;
    const bool is_cut_off = is_endless(c);
    if (is_cut_off) c.statuses[ENOUGH] = -1;
    const Walk actual = actual_walk(c);
    EXPECT_EQ(actual, Model(c).run()) << c;
    EXPECT_EQ(actual.rows, wanted_rows(c)) << c;
    const bool is_limit_reached =
        c.limit != 0 && actual.rows.size() == static_cast<std::size_t>(c.limit);
    EXPECT_EQ(actual.result, is_cut_off ? -1 : (is_limit_reached ? 0 : 1)) << c;
    return !HasFailure();
  }

  /// Checks all combinations of these limits and skips with all orders.
  static bool check_all(const Case& base, const Times& limits, const Times& skips) {
    for (const long limit : limits) {
      for (const long skip : skips) {
        for (const bool ascending : {false, true}) {
          for (const bool reverse : {false, true}) {
            Case c = base;
            c.limit = limit;
            c.skip = skip;
            c.ascending = ascending;
            c.reverse = reverse;
            if (!check(c)) return false;
          }
        }
      }
    }
    return true;
  }

  // Failed queries print messages. They are tested below.
  void SetUp() override { testing::internal::CaptureStderr(); }
  void TearDown() override { messages_ = testing::internal::GetCapturedStderr(); }

  TimeZone zone_;
  std::string messages_;
};

/// Rows a minute apart.
Times make_log(long count) {
  Times log;
  for (long i = 0; i < count; ++i) log.push_back(1000 + 60 * i);
  return log;
}

Times numbers_up_to(long last) {
  Times numbers;
  for (long i = 0; i <= last; ++i) numbers.push_back(i);
  return numbers;
}

TEST_F(RetrievalWalk, AgreesWithBothModelsOnSmallLogs) {
  for (const std::uint32_t chunk : {0U, 1U, 2U, 3U, 4U}) {
    for (const long size : {0L, 1L, 2L, 3L, 4L, 5L, 7L, 8L, 9L, 12L}) {
      Case base;
      base.log = make_log(size);
      base.chunk = chunk;
      const Times numbers = numbers_up_to(size + 2);
      ASSERT_TRUE(check_all(base, numbers, numbers));
    }
  }
}

TEST_F(RetrievalWalk, AgreesWithBothModelsInTimeRanges) {
  for (const TimeRange& range : std::vector<TimeRange>{{1060, -1},
                                                       {-1, 1420},
                                                       {1120, 1360},
                                                       {1119, 1361},
                                                       {1121, 1359},
                                                       {1180, 1180},
                                                       {1300, 1200},
                                                       {5000, -1},
                                                       {-1, 10},
                                                       {0, 0}}) {
    for (const std::uint32_t chunk : {0U, 1U, 2U, 3U, 5U}) {
      Case base;
      base.log = make_log(9);
      base.range = range;
      base.chunk = chunk;
      const Times numbers = numbers_up_to(10);
      ASSERT_TRUE(check_all(base, numbers, numbers));
    }
  }
}

TEST_F(RetrievalWalk, AgreesWithBothModelsAroundTheDefaultChunkSize) {
  for (const long size : {0L, 1L, 511L, 512L, 513L, 1023L, 1024L, 1025L}) {
    if (is_emulated() && size > 513) break;
    Case base;
    base.log = make_log(size);
    ASSERT_TRUE(check_all(base, {0, 1, 511, 512, 513, 1023, 1024, 1025}, {0, 1, 511, 512, 513}));
  }
}

TEST_F(RetrievalWalk, AgreesWithBothModelsOnOneLargeChunk) {
  Case base;
  base.log = make_log(20);
  base.chunk = 2147483647;
  ASSERT_TRUE(check_all(base, {0, 1, 19, 20, 21}, {0, 1, 19, 20, 21}));
}

TEST_F(RetrievalWalk, AgreesWithTheRulesIfRowsHaveTheSameTime) {
  const std::vector<Times> logs = {
      {10, 10}, {10, 10, 10, 10}, {10, 20, 20, 30}, {10, 10, 20, 20, 30, 30, 40}};
  for (const Times& log : logs) {
    for (const std::uint32_t chunk : {0U, 1U, 2U, 3U, 512U}) {
      for (const long limit : numbers_up_to(8)) {
        for (const long skip : numbers_up_to(8)) {
          for (const int order : {0, 1, 2, 3}) {
            const Case c = {log, {-1, -1}, limit, skip, chunk, (order & 1) != 0, (order & 2) != 0};
            ASSERT_EQ(actual_walk(c), Model(c).run()) << c;
          }
        }
      }
    }
  }
}

TEST_F(RetrievalWalk, AgreesWithTheRulesForEveryStatusOfEveryQuery) {
  for (const std::uint32_t chunk : {0U, 2U, 512U}) {
    for (const long limit : {0L, 3L, 4L, 20L}) {
      for (const long skip : {0L, 2L, 20L}) {
        for (const int order : {0, 1, 2, 3}) {
          for (const int call : {1, 2, 3, 4, 5, 6, 7}) {
            for (const int status : {-1, -100, 1, 100}) {
              const Case c = {make_log(9),      {-1, -1},         limit,           skip, chunk,
                              (order & 1) != 0, (order & 2) != 0, {{call, status}}};
              ASSERT_EQ(actual_walk(c), Model(c).run()) << c;
            }
          }
        }
      }
    }
  }
}

TEST_F(RetrievalWalk, PrintsOneMessageForAFailedQuery) {
  Case c;
  c.log = make_log(9);
  c.chunk = 2;
  c.statuses = {{3, -1}};
  EXPECT_EQ(actual_walk(c).result, -1);
  TearDown();
  EXPECT_EQ(messages_, "Error: couldn't fetch chunk\n");
  SetUp();
}

}  // namespace
