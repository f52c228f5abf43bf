// Databases that somebody made up, and what must hold for them.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/answers.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/sample_log.h"

namespace toolkit::trend {

/// Where programs are slow, each database meets only some of the recordings, in turn.
inline constexpr std::size_t RECORDING_STEP = DAMAGE_STEP > 11 ? 5 : 1;

/// Makes a database at a path where there is none.
using Make = void (*)(const std::string& path);

/// A database of which copies are changed in many ways. Each change must be noticed: a query gives
/// the same answer as before or fails, a check finds damage, and a transaction that is refused
/// changes nothing.
class MadeUp {
 public:
  explicit MadeUp(Make make)
      : has_checksums_(make != make_sample_of_version_1),
        questions_((make(sound_), sound_)),
        right_(questions_.ask(sound_)) {}

  /// Makes a new copy of the database, and returns its path.
  std::string copy() {
    remove();
    std::filesystem::copy_file(sound_, path_);
    return path_;
  }

  /// Expects the change of the last copy to be noticed, also by each `step`th recording.
  void expect_notice(std::size_t step = RECORDING_STEP) {
    const Answers answers = questions_.ask(path_);
    for (const auto& [question, answer] : answers) {
      // A summary does not tell all damage in blocks, and nothing shows damage to version 1.
      if (!has_checksums_ || question.ends_with(":series")) continue;
      EXPECT_EQ(answer, right_.at(question)) << question;
    }
    CLog log;
    std::vector<CDamage> damage;
    EXPECT_EQ(log.open_damaged(path_, {}), 0) << log.error();
    EXPECT_EQ(log.check(damage), 0) << log.error();
    EXPECT_FALSE(damage.empty());
    if (has_checksums_) expect_rows_or_damage();
    for (; next_ < RECORDINGS.size(); next_ += step) {
      const Recording& recording = RECORDINGS[next_];
      SCOPED_TRACE(recording.name);
      const std::string other = folder_.file("other.db");
      std::filesystem::copy_file(path_, other, std::filesystem::copy_options::overwrite_existing);
      CRecorder recorder;
      const bool is_recorded = recorder.open(other) == 0 && recorder.begin() == 0 &&
                               recording.record(recorder) && recorder.commit() == 0;
      EXPECT_EQ(is_recorded, recorder.error().empty());
      recorder.close();
      if (!is_recorded) {
        EXPECT_EQ(questions_.ask(other), answers);
      }
    }
    next_ %= RECORDINGS.size();
  }

 private:
  void remove() {
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path_ + suffix);
  }

  /// Expects a reader that skips damage to tell of it where rows are missing.
  void expect_rows_or_damage() {
    for (const bool ascending : {true, false}) {
      CLog log;
      CLog sound;
      ASSERT_EQ(log.open_damaged(path_, {}), 0) << log.error();
      ASSERT_EQ(sound.open(sound_, {}), 0);
      CDeviceParams device;
      device.device.aux_1 = 1;
      device.params = sample_devices()[0].params;
      const std::vector<CPeriodProperties> periods = {{.interval = 5}, {.interval = 60}};
      CDeviceData data;
      CDeviceData right;
      std::vector<CDamage> damage;
      ASSERT_EQ(sound.get_trend_data(right, device, periods, {-1, -1}, 0, 0, ascending, true), 0);
      if (log.get_trend_data(data, device, periods, {-1, -1}, 0, 0, ascending, true) != 0) {
        EXPECT_NE(log.error(), "");
        continue;
      }
      ASSERT_EQ(log.get_damage(damage), 0);
      EXPECT_TRUE(data.snapshots.size() == right.snapshots.size() || !damage.empty());
    }
  }

  TemporaryFolder folder_;
  std::string sound_ = folder_.file("sound.db");
  std::string path_ = folder_.file("trend.db");
  bool has_checksums_;
  Questions questions_;
  Answers right_;
  std::size_t next_ = 0;  ///< the next of the recordings
};

}  // namespace toolkit::trend
