// Recording into an archive that is not as the recorder expects it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "tests/support/small_archive.h"

namespace toolkit::trend {
namespace {

using testing::HasSubstr;

class ArchiveRecording : public SmallArchive {
 protected:
  /// Makes calls in a transaction of their own. Returns why one has failed; "" if none has.
  std::string error_of(const std::function<bool()>& calls) {
    if (recorder_.begin() == 0 && calls() && recorder_.commit() == 0) return "";
    EXPECT_NE(recorder_.error(), "");
    return recorder_.error();
  }

  bool append(std::int64_t time) {
    return recorder_.append(series_, time, 1, std::vector<double>{1}) == 0;
  }
};

TEST_F(ArchiveRecording, NeedsADeviceForAParameter) {
  CDeviceProperties other{.path = "/other", .aux_text = "", .aux_1 = 99};
  EXPECT_EQ(error_of([&] { return recorder_.add_param(other, param_) == 0; }),
            "the archive has no such device");
}

TEST_F(ArchiveRecording, NeedsASeriesForARow) {
  const CSeries other{.id = 99, .minutes = 1};
  const std::vector<std::function<bool()>> ways = {
      [&] { return recorder_.append(other, 60, 1, std::vector<double>{1}) == 0; },
      [&] { return recorder_.remove_row(other, 60) == 0; },
      [&] { return recorder_.purge(other, 60) == 0; },
      [&] { return recorder_.remove_series(other) == 0; },
  };
  for (const auto& way : ways) EXPECT_EQ(error_of(way), "the archive has no such series");
}

TEST_F(ArchiveRecording, FailsIfAnEntryDoesNotStay) {
  change(
      "CREATE FUNCTION drop_it() RETURNS trigger LANGUAGE plpgsql AS 'BEGIN RETURN NULL; END'; "
      "CREATE TRIGGER drop_it BEFORE INSERT ON device FOR EACH ROW EXECUTE FUNCTION drop_it()");
  CDeviceProperties other{.path = "/other", .aux_text = ""};
  EXPECT_EQ(error_of([&] { return recorder_.add_device(other) == 0; }),
            "an entry of the catalogue was removed meanwhile");
}

TEST_F(ArchiveRecording, FailsIfARowOfTheSeriesIsNotOneOfATrend) {
  add_rows(1, 2);
  for (const char* row : {"min", "max"}) {
    change(std::string("UPDATE snapshot SET time = time + interval '0.5 s' "
                       "WHERE time = (SELECT ") +
           row + "(time) FROM snapshot)");
    EXPECT_EQ(error_of([&] { return append(600); }),
              "the archive has a row that is not one of a trend");
    change("UPDATE snapshot SET time = date_trunc('second', time)");
  }
  EXPECT_EQ(error_of([&] { return append(600); }), "");
}

TEST_F(ArchiveRecording, FailsWhereRowsThatItHasCollectedAreRefused) {
  change("ALTER TABLE snapshot ADD CHECK (time < to_timestamp(600))");
  const std::vector<std::function<bool()>> ways = {
      [&] { return recorder_.purge(series_, 60) == 0; },
      [&] { return recorder_.remove_row(series_, 60) == 0; },
      [&] { return recorder_.remove_series(series_) == 0; },
      [&] { return append(600); },
      [] { return true; },
  };
  for (const auto& way : ways) {
    EXPECT_THAT(error_of([&] { return append(600) && way(); }), HasSubstr("check constraint"));
  }
  EXPECT_EQ(error_of([&] { return append(540); }), "");
}

TEST_F(ArchiveRecording, RemovesNoRowThatCannotBeThere) {
  for (const std::int64_t time : {std::int64_t{-60}, NO_ROW, MAX_TIMESTAMP + 1}) {
    EXPECT_EQ(error_of([&] { return recorder_.remove_row(series_, time) == 0; }),
              "the series has no such row");
  }
  EXPECT_EQ(error_of([&] { return recorder_.remove_row(series_, 60) == 0; }),
            "the series has no row at that time");
}

TEST_F(ArchiveRecording, TakesANumberOfAChangeThatCannotBeForNone) {
  constexpr const char* SOURCE = "01234567-89ab-cdef-0123-456789abcdef";
  std::uint64_t copied = 0;
  const auto copy = [&] { return recorder_.get_copied(SOURCE, series_, copied) == 0; };
  EXPECT_EQ(error_of([&] { return recorder_.set_copied(SOURCE, series_, 7) == 0 && copy(); }), "");
  EXPECT_EQ(copied, 7U);
  change("UPDATE copied SET change = -7");
  EXPECT_EQ(error_of(copy), "");
  EXPECT_EQ(copied, 0U);
}

}  // namespace
}  // namespace toolkit::trend
