// Recording into an archive while each message, statement and value is spoiled in turn.
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "libtrend/archive.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/archive_proxy.h"
#include "tests/support/log_content.h"

namespace toolkit::trend {
namespace {

using Fault = ArchiveProxy::Fault;

constexpr const char* SOURCE = "01234567-89ab-cdef-0123-456789abcdef";
constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// The catalogue entries of one device.
struct Entries {
  CDeviceProperties device;
  CSeries series;
};

bool add_entries(CRecorder& recorder, const std::string& path, Entries& entries) {
  entries.device = {.path = path, .aux_text = "of tests"};
  CParamProperties param{.path = "p"};
  set_statistics(param, ALL_STATISTICS);
  return recorder.add_device(entries.device) == 0 &&
         recorder.add_param(entries.device, param) == 0 &&
         recorder.add_series(entries.device, 1, entries.series) == 0;
}

bool append(CRecorder& recorder, const Entries& entries, std::int64_t row, double value) {
  return recorder.append(entries.series, 60 * row, 1,
                         std::vector<double>{value, MISSING, -value}) == 0;
}

/// What a transaction does. Returns whether all calls have succeeded.
using Work = std::function<bool(CRecorder&)>;

bool add_more(CRecorder& recorder) {
  Entries old;
  Entries added;
  CParamProperties param{.path = "q"};
  param.has_sum = true;
  return add_entries(recorder, "old", old) && add_entries(recorder, "new", added) &&
         recorder.add_param(old.device, param) == 0 && append(recorder, old, 20, 1) &&
         append(recorder, old, 5, 2) && append(recorder, added, 1, 3) &&
         append(recorder, added, 2, 4) && recorder.set_copied(SOURCE, old.series, 7) == 0;
}

bool remove_some(CRecorder& recorder) {
  Entries old;
  Entries added;
  std::uint64_t change = 0;
  return add_entries(recorder, "old", old) && add_entries(recorder, "new", added) &&
         recorder.purge(old.series, 240) == 0 && recorder.remove_row(old.series, 300) == 0 &&
         append(recorder, old, 5, 8) && recorder.get_copied(SOURCE, old.series, change) == 0 &&
         recorder.set_copied(SOURCE, old.series, change + 1) == 0 &&
         recorder.remove_device(added.device) == 0;
}

bool has_committed(CRecorder& recorder, const Work& work) {
  return recorder.begin() == 0 && work(recorder) && recorder.commit() == 0;
}

class EveryWriterFault : public testing::Test {
 protected:
  EveryWriterFault() {
    reset();
    contents_.push_back(read_content(url_));
    EXPECT_EQ(direct_.open(url_), 0) << direct_.error();
    for (const Work& work : works_) {
      EXPECT_TRUE(has_committed(direct_, work)) << direct_.error();
      contents_.push_back(read_content(url_));
    }
  }

  /// Leaves one device with a few rows in the archive.
  void reset() {
    EXPECT_EQ(direct_.open(url_), 0) << direct_.error();
    EXPECT_TRUE(has_committed(direct_, [](CRecorder& recorder) {
      Entries old;
      Entries added;
      bool is_done = add_entries(recorder, "old", old) && add_entries(recorder, "new", added) &&
                     recorder.remove_device(added.device) == 0 &&
                     recorder.remove_device(old.device) == 0 && add_entries(recorder, "old", old);
      for (int row = 1; row <= 10; ++row) {
        is_done = is_done && (row == 5 || append(recorder, old, row, row));
      }
      return is_done;
    })) << direct_.error();
  }

  /// Each transaction must be in the archive as a whole or not at all, as the recorder says.
  void expect_all_or_nothing(Fault fault, int step) {
    with_each_fault(server(), fault, step, [&](const ArchiveProxy& proxy) {
      reset();
      CRecorder recorder;
      if (recorder.open(proxy.url(url_)) != 0) {
        EXPECT_NE(recorder.error(), "");
        return;
      }
      for (std::size_t i = 0; i < works_.size(); ++i) {
        if (has_committed(recorder, works_[i])) continue;
        EXPECT_NE(recorder.error(), "");
        const LogContent content = read_content(url_);
        if (recorder.error().find("in doubt") != std::string::npos && content == contents_[i + 1]) {
          continue;
        }
        EXPECT_TRUE(content == contents_[i]) << recorder.error();
        if (fault == Fault::LOSE_SERVER) return;
        // There is only one fault, so this time it succeeds.
        EXPECT_TRUE(has_committed(recorder, works_[i])) << recorder.error();
      }
      EXPECT_TRUE(read_content(url_) == contents_.back()) << recorder.error();
    });
  }

  std::string url_ = server().make_archive();
  std::vector<Work> works_ = {add_more, remove_some};
  CRecorder direct_;
  std::vector<LogContent> contents_;  ///< before the transactions, and after each
};

TEST_F(EveryWriterFault, ALostRequestRecordsAllOrNothing) {
  expect_all_or_nothing(Fault::LOSE_REQUEST, 17);
}

TEST_F(EveryWriterFault, ALostReplyRecordsAllOrNothing) {
  expect_all_or_nothing(Fault::LOSE_REPLY, 29);
}

TEST_F(EveryWriterFault, ALostServerRecordsAllOrNothing) {
  expect_all_or_nothing(Fault::LOSE_SERVER, 31);
}

TEST_F(EveryWriterFault, ARefusedStatementRecordsNothing) {
  expect_all_or_nothing(Fault::REFUSE, 1);
}

TEST_F(EveryWriterFault, AMissingValueRecordsNothingElse) {
  expect_all_or_nothing(Fault::NO_VALUE, 2);
}

TEST_F(EveryWriterFault, AnArchiveIsMadeAsAWholeOrNotAtAll) {
  for (const Fault fault : {Fault::LOSE_REQUEST, Fault::REFUSE, Fault::LOSE_REPLY}) {
    with_each_fault(server(), fault, fault == Fault::LOSE_REPLY ? 7 : 1,
                    [](const ArchiveProxy& proxy) {
                      const std::string url = server().url("fresh");
                      std::string error;
                      const bool is_made = create_archive(proxy.url(url), {}, error) == 0;
                      EXPECT_EQ(is_made, error.empty());
                      CRecorder recorder;
                      if (recorder.open(url) != 0) {
                        EXPECT_FALSE(is_made);
                        EXPECT_EQ(create_archive(url, {}, error), 0) << error;
                        EXPECT_EQ(recorder.open(url), 0) << recorder.error();
                        EXPECT_EQ(recorder.open(url), 0) << recorder.error();
                      }
                      EXPECT_TRUE(has_committed(recorder, add_more)) << recorder.error();
                      server().sql("DROP SCHEMA fresh CASCADE");
                    });
  }
}

}  // namespace
}  // namespace toolkit::trend
