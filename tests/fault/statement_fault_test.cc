// Readers and recorders in which one statement after the other can't be prepared, or stops: an
// answer is whole or refused, and what is said to be recorded is.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/answers.h"
#include "tests/support/database_file.h"
#include "tests/support/log_content.h"
#include "tests/support/process.h"
#include "tests/support/sample_log.h"
#include "tests/support/statement_faults.h"

using namespace toolkit::trend;

namespace {

using Attempt = std::function<void(const StatementFault& fault, bool& has_happened)>;

/// Lets one moment after the other fail in `attempt`, which says whether there were so many; or
/// from that moment on all, if `lasts`.
void let_each_fail(const Attempt& attempt, bool lasts = false) {
  for (const Moment moment : {Moment::PREPARE, Moment::RUN}) {
    // SQLite asks several times about each statement.
    const int step = is_long_run()               ? 1
                     : moment == Moment::PREPARE ? 2 * STATEMENT_STEP
                                                 : STATEMENT_STEP;
    bool has_happened = true;
    int number = 1;
    for (; has_happened; number += step) {
      SCOPED_TRACE((moment == Moment::PREPARE ? "preparation " : "run ") + std::to_string(number) +
                   (lasts ? " and later" : " only"));
      attempt({moment, number, lasts, !is_long_run()}, has_happened);
      if (testing::Test::HasFatalFailure()) return;
    }
    EXPECT_GT(number, 2);
  }
}

class StatementFaults : public testing::TestWithParam<void (*)(const std::string&)> {
 protected:
  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_P(StatementFaults, MakeAnAnswerFailOrLeaveItWhole) {
  GetParam()(db_);
  const Questions questions(db_);
  const Answers right = questions.ask(db_);
  let_each_fail([&](const StatementFault& fault, bool& has_happened) {
    Answers answers;
    {
      const StatementFaultInForce in_force(fault);
      answers = questions.ask(db_);
      has_happened = in_force.has_happened();
    }
    for (const auto& [question, answer] : answers)
      ASSERT_EQ(answer, right.at(question)) << question;
  });
}

/// The first column of each row, by its time.
using Values = std::map<std::int64_t, double>;

/// Asks `log` for the rows of the device with the id 1. Returns false if it fails.
bool read_values(CLog& log, bool ascending, Values& values) {
  CDeviceParams device;
  device.device.aux_1 = 1;
  device.params = sample_devices()[0].params;
  CDeviceData data;
  if (log.get_trend_data(data, device, {{.interval = 5}, {.interval = 60}}, {-1, -1}, 0, 0,
                         ascending, true) != 0) {
    return false;
  }
  for (const CSnapshot& row : data.snapshots) values[row.timestamp] = row.samples[0].min;
  return true;
}

TEST_P(StatementFaults, AreDamageToAReaderThatSkipsIt) {
  GetParam()(db_);
  CLog sound;
  Values right;
  ASSERT_EQ(sound.open(db_, {.busy_timeout = 0}), 0);
  ASSERT_TRUE(read_values(sound, true, right));
  let_each_fail([&](const StatementFault& fault, bool& has_happened) {
    CLog log;
    std::vector<CDamage> damage;
    const StatementFaultInForce in_force(fault);
    for (const bool ascending : {true, false}) {
      Values values;
      if (log.open_damaged(db_, {.busy_timeout = 0}) != 0 || !read_values(log, ascending, values)) {
        ASSERT_NE(log.error(), "");
        continue;
      }
      ASSERT_EQ(log.get_damage(damage), 0);
      for (const auto& [time, value] : values) {
        ASSERT_EQ(right.count(time), 1) << time;
        ASSERT_TRUE(std::isnan(value) || value == right.at(time)) << time;
      }
      ASSERT_TRUE(values == right || !damage.empty());
    }
    has_happened = in_force.has_happened();
  });
}

TEST_P(StatementFaults, EndACheckOrAreDamage) {
  GetParam()(db_);
  int refused = 0;
  let_each_fail([&](const StatementFault& fault, bool& has_happened) {
    CLog log;
    std::vector<CDamage> damage;
    const StatementFaultInForce in_force(fault);
    const bool is_checked = log.open(db_, {.busy_timeout = 0}) == 0 && log.check(damage) == 0;
    has_happened = in_force.has_happened();
    ASSERT_EQ(is_checked, log.error().empty());
    if (!is_checked || !damage.empty()) ++refused;
    ASSERT_TRUE(has_happened || damage.empty());
  });
  EXPECT_GT(refused, 0);
}

TEST(StatementFaultsInADamagedDatabase, DoNotHideTheDamageFromACheck) {
  const struct {
    void (*make)(const std::string&);
    const char* damage;
  } cases[] = {
      {make_sample_of_version_1, "INSERT INTO series VALUES (7, 77, 5)"},
      {make_sample_of_version_1, "UPDATE parameter SET first_slot = 1 WHERE first_slot = 2"},
      {make_sample_of_version_1, "UPDATE snapshot SET samples = x'00'"},
      {make_sample_of_version_1, "UPDATE snapshot SET id = id + (9 << 40)"},
      {make_sample, "UPDATE loose SET samples = x'00'"},
      {make_sample, "INSERT INTO loose VALUES (9 << 40 | 5, 1.0, x'', 1)"},
      {make_sample, "INSERT INTO block VALUES (9 << 40 | 5, 9, 5, 0, 1, 0, 64, 1, x'', 1)"},
      {make_sample, "INSERT INTO segment VALUES (9 << 40, x'00')"},
      {make_sample, "UPDATE database SET next_block = 1"},
  };
  for (const auto& [make, damage] : cases) {
    SCOPED_TRACE(damage);
    const TemporaryFolder folder;
    const std::string db = folder.file("trend.db");
    make(db);
    run_sql(db, damage);
    let_each_fail([&](const StatementFault& fault, bool& has_happened) {
      CLog log;
      std::vector<CDamage> found;
      const StatementFaultInForce in_force(fault);
      const bool is_checked =
          log.open_damaged(db, {.busy_timeout = 0}) == 0 && log.check(found) == 0;
      has_happened = in_force.has_happened();
      ASSERT_TRUE(!is_checked || !found.empty());
    });
  }
}

TEST_P(StatementFaults, LeaveNoBackupOrAWholeOne) {
  GetParam()(db_);
  const LogContent right = read_content(db_);
  const std::string copy = folder_.file("copy.db");
  let_each_fail([&](const StatementFault& fault, bool& has_happened) {
    CLog log;
    bool is_made = false;
    {
      const StatementFaultInForce in_force(fault);
      is_made = log.open(db_, {.busy_timeout = 0}) == 0 && log.backup(copy) == 0;
      has_happened = in_force.has_happened();
    }
    ASSERT_EQ(is_made, log.error().empty());
    const auto files = list_folder(folder_.path());
    if (is_made) {
      ASSERT_EQ(read_content(copy), right);
      std::filesystem::remove(copy);
    } else {
      ASSERT_EQ(files, std::vector<std::string>{"trend.db"}) << log.error();
    }
  });
}

TEST_P(StatementFaults, LeaveATransactionAsItIsTold) {
  for (const Recording& change : RECORDINGS) {
    SCOPED_TRACE(change.name);
    const TemporaryFolder folder;
    const std::string original = folder.file("original.db");
    GetParam()(original);
    const LogContent before = read_content(original);
    const auto record = [&](std::string& error) {
      CRecorder recorder;
      const bool is_recorded = recorder.open(db_) == 0 && recorder.begin() == 0 &&
                               change.record(recorder) && recorder.commit() == 0;
      error = recorder.error();
      return is_recorded;
    };
    std::string error;
    std::filesystem::copy_file(original, db_);
    ASSERT_TRUE(record(error)) << error;
    const LogContent after = read_content(db_);
    const Attempt attempt = [&](const StatementFault& fault, bool& has_happened) {
      std::filesystem::remove(db_);
      std::filesystem::copy_file(original, db_);
      bool is_recorded = false;
      {
        const StatementFaultInForce in_force(fault);
        is_recorded = record(error);
        has_happened = in_force.has_happened();
      }
      ASSERT_EQ(is_recorded, error.empty());
      const LogContent found = read_content(db_);
      if (error.find("in doubt") == std::string::npos) {
        ASSERT_EQ(found, is_recorded ? after : before) << error;
      } else {
        ASSERT_TRUE(found == after || found == before) << error;
      }
      if (!is_recorded) return;
      CLog log;
      std::vector<CDamage> damage;
      ASSERT_EQ(log.open(db_, {.busy_timeout = 0}), 0);
      ASSERT_EQ(log.check(damage), 0);
      ASSERT_TRUE(damage.empty()) << damage.front().text;
    };
    for (const bool lasts : {false, true}) let_each_fail(attempt, lasts);
    std::filesystem::remove(db_);
  }
}

TEST_P(StatementFaults, LeaveNoLockOfAnExclusiveConnection) {
  GetParam()(db_);
  for (const bool read_only : {true, false}) {
    const OpenOptions options{
        .read_only = read_only, .busy_timeout = 0, .exclusive = true, .traditional_journal = true};
    let_each_fail([&](const StatementFault& fault, bool& has_happened) {
      CLog log;
      bool is_open = false;
      {
        const StatementFaultInForce in_force(fault);
        is_open = log.open(db_, options) == 0;
        has_happened = in_force.has_happened();
      }
      ASSERT_EQ(is_open, log.error().empty());
      log.close();
      ASSERT_EQ(log.open(db_, options), 0) << log.error();
    });
  }
}

TEST(StatementFaultsInANewDatabase, LeaveNoneOrAWholeOne) {
  const OpenOptions options{.read_only = false,
                            .create = true,
                            .busy_timeout = 0,
                            .page_size = 512,
                            .cache_size = 4096,
                            .heap_limit = 1 << 20};
  for (const bool is_empty_file : {false, true}) {
    let_each_fail([&](const StatementFault& fault, bool& has_happened) {
      const TemporaryFolder folder;
      const std::string db = folder.file("trend.db");
      if (is_empty_file) write_file(db, "");
      CLog log;
      {
        const StatementFaultInForce in_force(fault);
        const int status = log.open(db, options);
        has_happened = in_force.has_happened();
        ASSERT_EQ(status == 0, log.error().empty());
        log.close();
      }
      for (const std::string& file : list_folder(folder.path())) {
        ASSERT_FALSE(file.starts_with("trend.db-new")) << file;
      }
      ASSERT_EQ(log.open(db, options), 0) << log.error();
    });
  }
}

INSTANTIATE_TEST_SUITE_P(In, StatementFaults,
                         testing::Values(make_sample_of_version_1, make_sample),
                         [](const auto& state) {
                           return state.param == make_sample_of_version_1 ? "Version1" : "Version2";
                         });

}  // namespace
