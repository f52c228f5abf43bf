// Reading an archive while each message, statement and value is spoiled in turn.
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/archive_proxy.h"
#include "tests/support/print_rows.h"

namespace toolkit::trend {
namespace {

using Fault = ArchiveProxy::Fault;

constexpr const char* FAILED = "failed: ";
const std::string DAMAGED = "damaged: ";

/// What the calls of one handle have returned: a text each, which starts with FAILED on failure,
/// and with DAMAGED where a check has found damage.
class Answers {
 public:
  explicit Answers(CLog& log) : log_(log) {}

  void add(int status, const std::string& answer) {
    add(answer, status == 0 ? std::nullopt : std::optional(log_.error()));
  }
  void add(const std::string& answer, const std::optional<std::string>& error) {
    EXPECT_NE(error, "");
    texts_.push_back(error ? FAILED + *error : answer);
  }
  [[nodiscard]] const std::vector<std::string>& texts() const { return texts_; }

 private:
  CLog& log_;
  std::vector<std::string> texts_;
};

std::string describe(const std::vector<CTimeRange>& ranges) {
  std::string text;
  for (const CTimeRange& range : ranges) {
    text += std::to_string(range.first) + "-" + std::to_string(range.last) + " ";
  }
  return text;
}

/// Asks for all that the catalogue of an archive has.
void ask_for_catalogue(CLog& log, const CDeviceParams& selection, Answers& answers) {
  std::vector<CDeviceProperties> devices;
  int status = log.get_devices(devices);
  std::string text;
  for (const auto& device : devices) text += device.path + ": " + device.aux_text + "\n";
  answers.add(status, text);

  std::vector<CParamProperties> params;
  status = log.get_params(selection.device, params);
  text.clear();
  for (const auto& param : params) {
    text += param.path + " " + std::to_string(param.aux_1) + " " +
            std::to_string(get_statistics(param)) + "\n";
  }
  answers.add(status, text);

  std::vector<CPeriodProperties> periods;
  status = log.get_periods(periods);
  text.clear();
  for (const auto& period : periods) text += std::to_string(period.interval) + " ";
  answers.add(status, text);

  std::vector<CSeriesSummary> series;
  status = log.get_series(selection.device, series);
  text.clear();
  for (const auto& one : series) {
    text += std::to_string(one.minutes) + " " + std::to_string(one.rows) + " " +
            std::to_string(one.first_time) + " " + std::to_string(one.last_time) + " " +
            std::to_string(one.bytes) + "\n";
  }
  answers.add(status, text);

  text.clear();
  status = log.get_uuid(text);
  answers.add(status, text);

  for (const std::uint64_t since : {0U, 1U}) {
    CSeriesChanges changes;
    status = log.get_changes(selection.device, 1, since, changes);
    answers.add(status, std::to_string(changes.number) + ": " + describe(changes.ranges));
  }
}

/// Asks for all rows, in all ways.
void ask_for_rows(CLog& log, const CDeviceParams& selection, Answers& answers) {
  for (const bool ascending : {false, true}) {
    for (const unsigned offset : {0U, 9U}) {
      CDeviceData data;
      const int status = log.get_trend_data(data, selection, {{.interval = 1}, {.interval = 5}},
                                            {-1, -1}, 0, offset, ascending, true);
      answers.add(status, print_rows(data));
    }
    CDeviceData part;
    const int status =
        log.get_trend_data(part, selection, {{.interval = 1}}, {120, 900}, 4, 3, ascending, true);
    answers.add(status, print_rows(part));
  }

  std::vector<CDamage> damage;
  const int status = log.check(damage);
  answers.add(status, status == 0 && !damage.empty() ? DAMAGED + damage.front().text : "");
}

/// Asks for a part of the rows and goes on after it, so that rows are sent ahead.
void ask_for_portions(CLog& log, const CDeviceParams& selection, Answers& answers) {
  for (const bool ascending : {false, true}) {
    for (const std::pair<long, long>& range :
         {std::pair<long, long>{240, 480},
          ascending ? std::pair<long, long>{240, -1} : std::pair<long, long>{-1, 420}}) {
      CDeviceData data;
      const int status = log.get_trend_data(data, selection, {{.interval = 1}, {.interval = 5}},
                                            range, 0, 0, ascending, true);
      answers.add(status, print_rows(data));
    }
  }
}

void ask_for_all(CLog& log, const CDeviceParams& selection, Answers& answers) {
  ask_for_catalogue(log, selection, answers);
  ask_for_rows(log, selection, answers);
}

class EveryReaderFault : public testing::Test {
 protected:
  /// Makes an archive with one device and a few rows, which two transactions record.
  void SetUp() override {
    constexpr int PARAMS = 2;
    constexpr int ROWS = 12;
    url_ = server().make_archive();
    CRecorder recorder;
    device_ = {.path = "site", .aux_text = "of tests"};
    ASSERT_EQ(recorder.open(url_), 0) << recorder.error();
    ASSERT_EQ(recorder.begin(), 0);
    ASSERT_EQ(recorder.add_device(device_), 0);
    for (int i = 0; i < PARAMS; ++i) {
      CParamProperties param{.path = "p" + std::to_string(i)};
      set_statistics(param, ALL_STATISTICS);
      ASSERT_EQ(recorder.add_param(device_, param), 0);
    }
    for (const std::uint32_t minutes : {1U, 5U}) {
      CSeries& series = series_.emplace_back();
      ASSERT_EQ(recorder.add_series(device_, minutes, series), 0);
    }
    for (int change = 0; change < 2; ++change) {
      ASSERT_TRUE(change == 0 || recorder.begin() == 0) << recorder.error();
      for (int row = change; row < ROWS; row += 2) {
        const std::vector<double> slots = {1.0 * row, 2.0 * row, 3, 4, 5, -1.0 * row};
        ASSERT_EQ(recorder.append(series_[0], 60 * (row + 1), 1, slots), 0);
        ASSERT_TRUE(row % 5 != 4 || recorder.append(series_[1], 60 * (row - 2), 0.5, slots) == 0);
      }
      ASSERT_EQ(recorder.commit(), 0) << recorder.error();
    }
  }

  /// Adds parameters whose slots are so far apart that a portion has few rows.
  void add_far_parameters() const {
    server().sql("INSERT INTO " + url_.substr(url_.rfind('=') + 1) +
                 ".parameter (device_id, path, first_slot, has_min, has_max, has_avg, has_actual, "
                 "has_sum) SELECT 1, 'far' || i, 600 * i, true, "
                 "false, false, false, false FROM generate_series(1, 33) AS i");
  }

  using Questions = std::function<void(CLog&, const CDeviceParams&, Answers&)>;

  /// Each call must answer as it does without a fault, or fail.
  void expect_right_or_failed(Fault fault, int step, const Questions& questions) {
    const auto ask = [&](CLog& log, const CDeviceParams& selection) {
      Answers answers(log);
      questions(log, selection, answers);
      return answers.texts();
    };
    CLog log;
    ASSERT_EQ(log.open(url_, {}), 0) << log.error();
    CDeviceParams selection{.device = device_, .params = {}};
    ASSERT_EQ(log.get_params(device_, selection.params), 0);
    const std::vector<std::string> expected = ask(log, selection);
    for (const std::string& text : expected) EXPECT_FALSE(text.starts_with(FAILED)) << text;
    with_each_fault(server(), fault, step, [&](const ArchiveProxy& proxy) {
      CLog other;
      if (other.open(proxy.url(url_), {.busy_timeout = 2}) != 0) {
        EXPECT_NE(other.error(), "");
        return;
      }
      const std::vector<std::string> found = ask(other, selection);
      ASSERT_EQ(found.size(), expected.size());
      int failures = 0;
      for (std::size_t i = 0; i < found.size(); ++i) {
        if (found[i].starts_with(FAILED)) {
          ++failures;
        } else if (found[i].starts_with(DAMAGED)) {
          // A lost connection is no damage.
          EXPECT_TRUE(fault == Fault::REFUSE || fault == Fault::NO_VALUE) << found[i];
        } else {
          EXPECT_EQ(found[i], expected[i]);
        }
      }
      EXPECT_TRUE(failures <= 1 || fault == Fault::LOSE_SERVER || fault == Fault::NO_VALUE);
    });
  }

  std::string url_;
  CDeviceProperties device_;
  std::vector<CSeries> series_;
};

TEST_F(EveryReaderFault, ALostRequestOfAReaderIsNoticed) {
  expect_right_or_failed(Fault::LOSE_REQUEST, 19, ask_for_all);
}

TEST_F(EveryReaderFault, AFaultBetweenPortionsIsNoticed) {
  add_far_parameters();
  expect_right_or_failed(Fault::REFUSE, 1, ask_for_portions);
  expect_right_or_failed(Fault::LOSE_REPLY, 13, ask_for_portions);
  expect_right_or_failed(Fault::NO_VALUE, 3, ask_for_portions);
}

TEST_F(EveryReaderFault, ALostReplyToAReaderIsNoticed) {
  expect_right_or_failed(Fault::LOSE_REPLY, 29, ask_for_all);
}

TEST_F(EveryReaderFault, ALostServerIsNoticedByAReader) {
  expect_right_or_failed(Fault::LOSE_SERVER, 37, ask_for_all);
}

TEST_F(EveryReaderFault, ARefusedQueryFails) {
  expect_right_or_failed(Fault::REFUSE, 1, ask_for_all);
}

TEST_F(EveryReaderFault, AMissingValueOfARowIsNotTakenForAnother) {
  expect_right_or_failed(Fault::NO_VALUE, 11, ask_for_rows);
}

TEST_F(EveryReaderFault, AMissingValueOfTheCatalogueIsNotTakenForAnother) {
  expect_right_or_failed(Fault::NO_VALUE, 1, ask_for_catalogue);
}

}  // namespace
}  // namespace toolkit::trend
