// Queries of an archive that go on where an earlier one has ended, and rows that are not of a
// trend.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/small_archive.h"

namespace toolkit::trend {
namespace {

constexpr const char* NOT_A_ROW = "the archive has a row that is not one of a trend";
/// Rows of a portion with values.
constexpr int PORTION = 512;

class ArchiveRows : public SmallArchive {
 protected:
  /// The numbers of rows, from `first` to `last`.
  static std::vector<int> rows(int first, int last) {
    std::vector<int> numbers;
    for (int row = first; row != last; row += first < last ? 1 : -1) numbers.push_back(row);
    numbers.push_back(last);
    return numbers;
  }

  /// Asks for rows. Returns their numbers; if that fails, -1, and `error_` has the reason.
  std::vector<int> find(const Question& question) {
    CDeviceData data;
    error_ = ask(data, question);
    if (!error_.empty()) return {-1};
    std::vector<int> numbers;
    for (const CSnapshot& row : data.snapshots) {
      numbers.push_back(static_cast<int>(row.timestamp / 60));
      EXPECT_EQ(row.samples.at(0).actual, numbers.back());
    }
    return numbers;
  }

  /// Moves a row to a time between two seconds.
  void damage(int row) const {
    change("UPDATE snapshot SET time = time + interval '0.5 s' WHERE time = to_timestamp(60.0 * " +
           std::to_string(row) + ")");
  }

  /// Has the rows that fulfil a condition in the place of all rows.
  void leave_rows(const std::string& condition) const {
    change(
        "ALTER TABLE snapshot RENAME TO kept; CREATE VIEW snapshot AS SELECT * FROM kept WHERE " +
        condition);
  }

  std::string error_;
};

/// What fails when the server computes it, but not before.
constexpr const char* FAILURE = "1 / (series_id - series_id) = 1";

TEST_F(ArchiveRows, ALaterRangeMayEndAfterAnEarlierOne) {
  add_rows(1, 20);
  EXPECT_EQ(find({.range = {60, 600}}), rows(1, 10));
  EXPECT_EQ(find({.range = {300, 1200}}), rows(5, 20));
  EXPECT_EQ(find({.range = {600, 1200}, .ascending = false}), rows(20, 10));
  EXPECT_EQ(find({.range = {60, 900}, .ascending = false}), rows(15, 1));
}

TEST_F(ArchiveRows, ARangeMayEndWithAPortion) {
  add_rows(1, PORTION + 100);
  EXPECT_EQ(find({.range = {-1, 60 * PORTION}}), rows(1, PORTION));
  EXPECT_EQ(find({.range = {60 * 101, -1}, .ascending = false}), rows(PORTION + 100, 101));
}

TEST_F(ArchiveRows, MoreRowsCanBeSkippedThanAPortionOfTimesHas) {
  constexpr int ALL = 5000;
  add_rows(1, ALL);
  EXPECT_EQ(find({.count = 1, .offset = 4500}), rows(4501, 4501));
  EXPECT_EQ(find({.count = 2}), rows(1, 2)) << "those that were skipped are there";
  EXPECT_EQ(find({.count = 1, .offset = 4500, .ascending = false}), rows(500, 500));
  EXPECT_EQ(find({.count = 2, .ascending = false}), rows(ALL, ALL - 1));
}

TEST_F(ArchiveRows, TwoAtOneTimeAreNotOfATrend) {
  change("ALTER TABLE snapshot DROP CONSTRAINT snapshot_pkey");
  for (const int last : {3, 5}) add_rows(1, last);
  for (const bool ascending : {false, true}) EXPECT_EQ(rows_error(ascending), NOT_A_ROW);
}

TEST_F(ArchiveRows, ARangeWithoutTheDamageIsAnswered) {
  add_rows(1, 100);
  for (const int row : {31, 70}) damage(row);
  EXPECT_EQ(find({.count = 10}), rows(1, 10));
  EXPECT_EQ(find({.range = {660, -1}, .count = 10}), rows(11, 20));
  // The server has sent the damaged row, too.
  EXPECT_EQ(find({.range = {1500, 1680}}), rows(25, 28)) << error_;
  EXPECT_EQ(find({.count = 10, .ascending = false}), rows(100, 91));
  EXPECT_EQ(find({.range = {-1, 5400}, .count = 10, .ascending = false}), rows(90, 81));
  EXPECT_EQ(find({.range = {4380, 4560}, .ascending = false}), rows(76, 73)) << error_;
  for (const bool ascending : {true, false}) {
    EXPECT_EQ(find({.ascending = ascending}), rows(-1, -1));
    EXPECT_EQ(error_, NOT_A_ROW);
  }
  EXPECT_EQ(find({.range = {60, 1800}}), rows(1, 30)) << error_;
}

TEST_F(ArchiveRows, ADamagedTimeAtTheEndOfAPortionIsFound) {
  add_rows(1, PORTION + 100);
  damage(PORTION);
  EXPECT_EQ(find({}), rows(-1, -1));
  EXPECT_EQ(error_, NOT_A_ROW);
  EXPECT_EQ(find({.range = {-1, 60 * PORTION - 1}}), rows(1, PORTION - 1)) << error_;
}

TEST_F(ArchiveRows, ADamagedTimeAmongThoseSkippedIsFound) {
  add_rows(1, 10);
  damage(10);
  EXPECT_EQ(find({.offset = 20}), rows(-1, -1));
  EXPECT_EQ(error_, NOT_A_ROW);
}

TEST_F(ArchiveRows, ADamagedTimeBeforeTheRangeIsFound) {
  change("INSERT INTO series (device_id, minutes) VALUES (1, 5)");
  change("INSERT INTO snapshot VALUES (2, to_timestamp(600), 1, '{10}')");
  const Question question = {.range = {400, -1}, .periods = {{.interval = 1}, {.interval = 5}}};
  EXPECT_EQ(find(question), rows(10, 10)) << error_;
  add_rows(6, 6);
  EXPECT_EQ(find(question), std::vector<int>()) << "the finer row hides the other";
  damage(6);
  EXPECT_EQ(find(question), rows(-1, -1));
  EXPECT_EQ(error_, NOT_A_ROW);
  leave_rows("current_query() NOT LIKE '%DESC LIMIT 1' OR " + std::string(FAILURE));
  EXPECT_EQ(find(question), rows(-1, -1));
  EXPECT_EQ(error_, "division by zero");
}

TEST_F(ArchiveRows, ARowThatIsGoneWhenItsValuesAreWantedIsAFailure) {
  add_rows(1, 10);
  EXPECT_EQ(find({.offset = 3}), rows(4, 10));
  leave_rows("current_query() NOT LIKE '%valid_ratio%'");
  EXPECT_EQ(rows_error(), "");
  EXPECT_EQ(find({.offset = 3}), rows(-1, -1));
  EXPECT_EQ(error_, NOT_A_ROW);
}

TEST_F(ArchiveRows, AFailureOfTheRowsAheadEndsTheQuery) {
  add_rows(1, 2 * PORTION);
  leave_rows("time <= to_timestamp(" + std::to_string(60 * PORTION) + ") OR " + FAILURE);
  EXPECT_EQ(find({}), rows(-1, -1));
  EXPECT_EQ(error_, "division by zero");
  EXPECT_EQ(find({.count = PORTION}), rows(1, PORTION)) << error_;
}

TEST_F(ArchiveRows, AFailureOfTheRowsAheadIsNoneOfAnotherQuery) {
  add_rows(1, 100);
  leave_rows("time <= to_timestamp(60 * 50) OR " + std::string(FAILURE));
  EXPECT_EQ(find({.count = 10}), rows(1, 10));
  // From here on, the server prepares the rows after those that it returns.
  EXPECT_EQ(find({.range = {660, -1}, .count = 10}), rows(11, 20));
  EXPECT_EQ(find({.range = {60, 120}}), rows(1, 2)) << error_;
  EXPECT_EQ(find({.range = {1260, 1800}}), rows(21, 30)) << error_;
  EXPECT_EQ(find({.range = {1860, -1}}), rows(-1, -1));
  EXPECT_EQ(error_, "division by zero");
}

}  // namespace
}  // namespace toolkit::trend
