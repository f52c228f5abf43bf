#include "output/retrieval.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"
#include "tests/support/time_zone.h"

namespace {

constexpr const char* FETCH_ERROR = "Error: couldn't fetch chunk\n";
constexpr bool OLDEST_FIRST = true;
constexpr bool NEWEST_FIRST = false;
constexpr long MAX_TIME = std::numeric_limits<long>::max();

class DumpRows : public testing::Test {
 protected:
  DumpRows() : zone_(TimeZone::UTC) {
    trend_log_script() = {};
    options_.output_date_format = "%s";
    context_.out = std::tmpfile();
    context_.device_params.device = make_device("pump");
    context_.device_params.params = {make_param("p", "v")};
    context_.periods = {make_period(5), make_period(60)};
    context_.range_start = -1;
    context_.range_end = -1;
  }

  /// Sets the rows of the log: one for each of these timestamps, with the values 1, 2 and so on.
  void fill(const std::vector<std::time_t>& timestamps) {
    double number = 0;
    for (const std::time_t timestamp : timestamps) {
      trend_log_script().snapshots.push_back(make_snapshot(timestamp, {{0, 0, ++number, 0, 0}}));
    }
  }

  /// Sets the rows of the log: one for each of the times from 1 to `count`.
  void fill(int count) {
    std::vector<std::time_t> timestamps;
    for (int i = 1; i <= count; ++i) timestamps.push_back(i);
    fill(timestamps);
  }

  int dump(const std::string& err = "") {
    const ProcessResult result = capture([&] { return dump_rows(context_, options_); });
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.out, "");
    return result.exit_status;
  }

  std::string output() { return read_stream(context_.out); }

  static const std::vector<Query>& queries() { return trend_log_script().queries; }

  TimeZone zone_;
  DumpOptions options_;
  DumpContext context_;
};

using Queries = std::vector<Query>;

TEST_F(DumpRows, AsksThreeTimesFor1024Rows) {
  fill(1024);
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 512, 0, NEWEST_FIRST, true},
                                {{-1, 512}, 512, 0, NEWEST_FIRST, true},
                                {{-1, 0}, 512, 0, NEWEST_FIRST, true}}));
}

TEST_F(DumpRows, QueriesTheSelectionWithAnEmptyResult) {
  fill(20);
  options_.chunk_size = 3;
  options_.max_records = 10;
  context_.skip = 2;
  EXPECT_EQ(dump(), 0);
  ASSERT_EQ(trend_log_script().selections.size(), 6U);
  for (const QueriedSelection& selection : trend_log_script().selections) {
    EXPECT_TRUE(selection.device == context_.device_params);
    EXPECT_TRUE(selection.periods == context_.periods);
    EXPECT_TRUE(selection.result_was_empty);
  }
}

TEST_F(DumpRows, FindsTheBoundForALimitWithOneQuery) {
  fill(600);
  options_.max_records = 512;
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, 512, NEWEST_FIRST, true},
                                {{89, -1}, 512, 0, NEWEST_FIRST, true}}));
}

TEST_F(DumpRows, ChangesNoBoundIfFewerRowsThanTheLimitExist) {
  fill(40);
  options_.max_records = 100;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, 100, NEWEST_FIRST, true},
                                {{-1, -1}, 100, 0, NEWEST_FIRST, true}}));
}

TEST_F(DumpRows, LooksForTheLimitFromTheEndOfTheSkip) {
  fill(9);
  options_.max_records = 3;
  options_.ascending = true;
  context_.skip = 2;
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, 2, OLDEST_FIRST, true},
                                {{3, -1}, 1, 3, OLDEST_FIRST, true},
                                {{3, 5}, 3, 0, OLDEST_FIRST, true}}));
  EXPECT_EQ(output(), "3,,3\n4,,4\n5,,5\n");
}

TEST_F(DumpRows, LooksForTheLimitInItsOwnOrderInReverse) {
  fill(9);
  options_.max_records = 3;
  options_.reverse = true;
  options_.chunk_size = 2;
  context_.skip = 2;
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, 2, NEWEST_FIRST, true},
                                {{-1, 7}, 1, 3, NEWEST_FIRST, true},
                                {{5, 7}, 2, 0, OLDEST_FIRST, true},
                                {{7, 7}, 1, 0, OLDEST_FIRST, true}}));
  EXPECT_EQ(output(), "5,,5\n6,,6\n7,,7\n");
}

TEST_F(DumpRows, PrintsTheRowsAtBothEndsOfTheRange) {
  fill(9);
  context_.range_start = 4;
  context_.range_end = 6;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "6,,6\n5,,5\n4,,4\n");
  EXPECT_EQ(context_.range_start, 4);
  EXPECT_EQ(context_.range_end, 6);
}

TEST_F(DumpRows, PrintsNothingOfARangeThatEndsBeforeItStarts) {
  fill(9);
  context_.range_start = 6;
  context_.range_end = 4;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "");
}

TEST_F(DumpRows, PrintsNoRowIfTheSkipPassesTheEnd) {
  fill(4);
  options_.chunk_size = 2;
  options_.max_records = 1;
  context_.skip = 5;
  EXPECT_EQ(dump(), 1);
  // The skip is not changed, and there is no query for the limit.
  EXPECT_EQ(queries(),
            (Queries{{{-1, -1}, 1, 5, NEWEST_FIRST, true}, {{-1, -1}, 1, 5, NEWEST_FIRST, true}}));
  EXPECT_EQ(output(), "");
  EXPECT_EQ(context_.skip, 0U);
}

TEST_F(DumpRows, PrintsAllRowsAtTheTimeOfTheFirstRow) {
  fill({10, 20, 20, 30});
  options_.ascending = true;
  context_.skip = 2;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "20,,2\n20,,3\n30,,4\n");
}

TEST_F(DumpRows, PrintsNoRowAtTheTimeOfTheRowAfterTheLimit) {
  fill({10, 20, 20, 30});
  options_.ascending = true;
  options_.max_records = 2;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "10,,1\n");
}

TEST_F(DumpRows, PrintsNoRowAtTheTimeOfTheRowAfterTheLimitNewestFirst) {
  fill({10, 20, 20, 30});
  options_.max_records = 2;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "30,,4\n");
}

TEST_F(DumpRows, PrintsNothingIfSkipAndLimitHaveTheSameTime) {
  fill({10, 10, 20});
  options_.ascending = true;
  options_.max_records = 1;
  context_.skip = 1;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "");
}

TEST_F(DumpRows, LosesRowsAtTheTimeOfTheLastRowOfAChunk) {
  fill({10, 10, 20, 20, 30});
  options_.ascending = true;
  options_.chunk_size = 1;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "10,,1\n20,,3\n30,,5\n");
}

TEST_F(DumpRows, LosesRowsAtTheTimeOfTheLastRowOfAChunkNewestFirst) {
  fill({10, 10, 20, 20, 30});
  options_.chunk_size = 2;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "30,,5\n20,,4\n10,,2\n10,,1\n");
}

TEST_F(DumpRows, AsksOnceWithoutChunks) {
  fill(9);
  options_.chunk_size = 0;
  context_.skip = 2;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 0, 2, NEWEST_FIRST, true}}));
  EXPECT_EQ(output(), "7,,7\n6,,6\n5,,5\n4,,4\n3,,3\n2,,2\n1,,1\n");
}

TEST_F(DumpRows, AsksOnceForTheLimitWithoutChunks) {
  fill(9);
  options_.chunk_size = 0;
  options_.max_records = 9;
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 9, 0, NEWEST_FIRST, true}}));
}

TEST_F(DumpRows, EndsWithOneBelowTheLimitWithoutChunks) {
  fill(9);
  options_.chunk_size = 0;
  options_.max_records = 10;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 10, 0, NEWEST_FIRST, true}}));
}

TEST_F(DumpRows, CountsInPrintedOrderWithoutChunks) {
  fill(9);
  options_.chunk_size = 0;
  options_.max_records = 2;
  options_.reverse = true;
  context_.skip = 1;
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(output(), "2,,2\n3,,3\n");
}

TEST_F(DumpRows, RepeatsAnEmptyQueryWithoutEndWithoutChunksAndLimit) {
  options_.chunk_size = 0;
  context_.skip = 4;
  trend_log_script().query_statuses = {{5, -1}};
  EXPECT_EQ(dump(FETCH_ERROR), -1);
  const Query again = {{-1, -1}, 0, 0, NEWEST_FIRST, true};
  EXPECT_EQ(queries(), (Queries{{{-1, -1}, 0, 4, NEWEST_FIRST, true}, again, again, again, again}));
}

TEST_F(DumpRows, PrintsAllRowsAfterASkipBeyondTheEndWithoutChunks) {
  fill(3);
  options_.chunk_size = 0;
  context_.skip = 3;
  EXPECT_EQ(dump(), 1);
  // The first query finds as many rows as it asked for: none. The second one skips no more rows.
  EXPECT_EQ(queries(),
            (Queries{{{-1, -1}, 0, 3, NEWEST_FIRST, true}, {{-1, -1}, 0, 0, NEWEST_FIRST, true}}));
  EXPECT_EQ(output(), "3,,3\n2,,2\n1,,1\n");
}

TEST_F(DumpRows, EndsAfterTheLargestTime) {
  fill({10, MAX_TIME - 1, MAX_TIME});
  options_.output_date_format = "row";
  options_.ascending = true;
  options_.chunk_size = 1;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "row,,1\nrow,,2\nrow,,3\n");
  ASSERT_EQ(queries().size(), 4U);
  EXPECT_EQ(queries()[2].range, (TimeRange{MAX_TIME, -1}));
  // The last range ends before it starts, so it is empty.
  EXPECT_GT(queries()[3].range.first, queries()[3].range.second);
  EXPECT_NE(queries()[3].range.second, -1);
}

TEST_F(DumpRows, EndsAfterTheLargestTimeInReverse) {
  fill({MAX_TIME - 1, MAX_TIME});
  options_.output_date_format = "row";
  options_.reverse = true;
  options_.chunk_size = 1;
  options_.max_records = 5;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "row,,1\nrow,,2\n");
}

TEST_F(DumpRows, PrintsNothingIfTheRowAfterTheLimitHasTheLargestTime) {
  fill({10, MAX_TIME, MAX_TIME});
  options_.max_records = 1;
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "");
}

TEST_F(DumpRows, StopsBeforeTheLargestTimeAtTheLimit) {
  fill({MAX_TIME - 1, MAX_TIME});
  options_.output_date_format = "row";
  options_.ascending = true;
  options_.max_records = 1;
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(output(), "row,,1\n");
}

TEST_F(DumpRows, TakesTheLargestCountIfOneDoesNotFit) {
  if constexpr (sizeof(long) > 4) {
    constexpr unsigned MOST = std::numeric_limits<unsigned>::max();
    fill(3);
    options_.max_records = static_cast<long>(5000000000);
    context_.skip = static_cast<unsigned long>(6000000000);
    EXPECT_EQ(dump(), 1);
    EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, MOST, NEWEST_FIRST, true},
                                  {{-1, -1}, 512, MOST, NEWEST_FIRST, true}}));
    trend_log_script().queries.clear();
    options_.chunk_size = 0;
    EXPECT_EQ(dump(), 1);
    EXPECT_EQ(queries(), (Queries{{{-1, -1}, MOST, 0, NEWEST_FIRST, true}}));
    trend_log_script().queries.clear();
    options_.chunk_size = 512;
    EXPECT_EQ(dump(), 1);
    EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, MOST, NEWEST_FIRST, true},
                                  {{-1, -1}, 512, 0, NEWEST_FIRST, true}}));
  } else {
    fill(3);
    options_.max_records = MAX_TIME;
    context_.skip = 2147483647UL;
    EXPECT_EQ(dump(), 1);
    EXPECT_EQ(queries(), (Queries{{{-1, -1}, 1, 2147483647U, NEWEST_FIRST, true},
                                  {{-1, -1}, 512, 2147483647U, NEWEST_FIRST, true}}));
  }
}

TEST_F(DumpRows, StopsAtAFailedQueryForTheSkip) {
  fill(9);
  options_.max_records = 3;
  context_.skip = 2;
  trend_log_script().query_statuses = {{1, -1}};
  EXPECT_EQ(dump(FETCH_ERROR), -1);
  EXPECT_EQ(queries().size(), 1U);
  EXPECT_EQ(output(), "");
}

TEST_F(DumpRows, StopsAtAFailedQueryForTheLimit) {
  fill(9);
  options_.max_records = 3;
  context_.skip = 2;
  trend_log_script().query_statuses = {{2, -7}};
  EXPECT_EQ(dump(FETCH_ERROR), -1);
  EXPECT_EQ(queries().size(), 2U);
  EXPECT_EQ(output(), "");
}

TEST_F(DumpRows, KeepsTheRowsPrintedBeforeAFailedChunk) {
  fill(9);
  options_.chunk_size = 2;
  trend_log_script().query_statuses = {{3, -1}};
  EXPECT_EQ(dump(FETCH_ERROR), -1);
  EXPECT_EQ(queries().size(), 3U);
  EXPECT_EQ(output(), "9,,9\n8,,8\n7,,7\n6,,6\n");
}

TEST_F(DumpRows, ContinuesAfterAPositiveStatusForTheSkip) {
  fill(9);
  context_.skip = 7;
  trend_log_script().query_statuses = {{1, 5}};
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "2,,2\n1,,1\n");
}

TEST_F(DumpRows, EndsWithAPositiveStatusForTheLimit) {
  fill(9);
  options_.max_records = 3;
  trend_log_script().query_statuses = {{1, 5}};
  EXPECT_EQ(dump(), 5);
  EXPECT_EQ(queries().size(), 1U);
  EXPECT_EQ(output(), "");
}

TEST_F(DumpRows, IgnoresAPositiveStatusForALimitBeyondTheEnd) {
  fill(3);
  options_.max_records = 3;
  trend_log_script().query_statuses = {{1, 5}};
  EXPECT_EQ(dump(), 0);
  EXPECT_EQ(output(), "3,,3\n2,,2\n1,,1\n");
}

TEST_F(DumpRows, ContinuesAfterAPositiveStatusForAChunk) {
  fill(3);
  options_.chunk_size = 1;
  trend_log_script().query_statuses = {{1, 5}, {2, 1}, {3, 2}, {4, 9}};
  EXPECT_EQ(dump(), 1);
  EXPECT_EQ(output(), "3,,3\n2,,2\n1,,1\n");
}

TEST_F(DumpRows, FlushesEveryChunk) {
  const TemporaryFolder folder;
  close_output(context_);
  options_.output_path = folder.file("out.csv");
  ASSERT_EQ(open_output(context_, options_), 0);
  fill(3);
  TimeRange range = {-1, -1};
  EXPECT_EQ(fetch_chunk(context_, options_, range, 2), 0);
  EXPECT_EQ(read_file(options_.output_path), "3,,3\n2,,2\n");
  EXPECT_EQ(range, (TimeRange{-1, 1}));
}

TEST_F(DumpRows, KeepsTheRangeIfAChunkIsEmpty) {
  TimeRange range = {20, 30};
  EXPECT_EQ(fetch_chunk(context_, options_, range, 2), 1);
  EXPECT_EQ(range, (TimeRange{20, 30}));
}

}  // namespace
