// Processes that record, read, load and are killed at the same time, and a log that grows. Every
// test prints what it has done. TRENDCSV_SOAK_SECONDS is how long each one works.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/process.h"

namespace toolkit::trend {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// How long a test works: a moment, and longer under an emulator, where everything is slow.
Seconds duration() {
  const char* const seconds = std::getenv("TRENDCSV_SOAK_SECONDS");
  if (seconds != nullptr) return Seconds(std::strtod(seconds, nullptr));
  return Seconds(is_emulated() ? 5 : 1.5);
}

/// What a process says at the end, through a pipe.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_), 0); }
  ~Pipe() {
    for (const int end : ends_) close(end);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void write(std::int64_t number) const {
    if (::write(ends_[1], &number, sizeof number) != sizeof number) _exit(3);
  }
  /// Returns the numbers that were written, after all writers have ended.
  [[nodiscard]] std::vector<std::int64_t> read_all() {
    close(ends_[1]);
    ends_[1] = -1;
    std::vector<std::int64_t> numbers;
    for (std::int64_t number = 0; read(ends_[0], &number, sizeof number) == sizeof number;) {
      numbers.push_back(number);
    }
    return numbers;
  }

 private:
  int ends_[2] = {-1, -1};
};

/// Runs `work` in a new process, which ends with status 0 if `work` returns true.
template <typename Work>
pid_t start(const Work& work) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) _exit(work() ? 0 : 1);
  return child;
}

/// How many rows the transaction `number` adds. Each has the number as its value.
std::int64_t rows_of(std::int64_t number) { return 1 + number % 37; }

/// Records transactions to the device `path`, each a minute after the other, from the number
/// `number` on. Calls `report` after each commit, until it returns false.
template <typename Report>
bool record(const std::string& db, const std::string& path, std::int64_t number, std::int64_t time,
            const Report& report) {
  CRecorder recorder;
  CDeviceProperties device{.path = path, .aux_text = ""};
  CParamProperties param{.path = "number", .has_actual = true};
  CSeries series;
  if (recorder.open(db) != 0) return false;
  for (;; ++number) {
    if (recorder.begin() != 0 || recorder.add_device(device) != 0 ||
        recorder.add_param(device, param) != 0 || recorder.add_series(device, 1, series) != 0) {
      break;
    }
    const std::vector<double> values = {static_cast<double>(number)};
    bool is_added = true;
    for (std::int64_t i = rows_of(number); i > 0 && is_added; --i) {
      time += 60;
      is_added = recorder.append(series, time, 1, values) == 0;
    }
    // Old rows go, so that the test reads as many at any time.
    constexpr std::int64_t KEPT = 20'000;
    if (!is_added || (number % 64 == 0 && recorder.purge(series, time - 60 * KEPT) != 0) ||
        recorder.commit() != 0) {
      break;
    }
    if (!report(number)) return true;
  }
  std::fprintf(stderr, "%s: %s\n", path.c_str(), recorder.error().c_str());
  return false;
}

struct Recorded {
  bool is_whole = false;
  std::int64_t rows = 0;
  std::int64_t number = -1;  ///< of the last transaction
  std::int64_t time = 0;     ///< of the last row
};

/// Reads the rows of a device. They are whole if each of their transactions is complete, but for
/// the first, of which rows may have been purged.
Recorded read_back(CLog& log, const std::string& path) {
  Recorded result;
  std::vector<CDeviceProperties> devices;
  CDeviceParams wanted;
  CDeviceData data;
  if (log.get_devices(devices) != 0) return result;
  const auto device = std::find_if(devices.begin(), devices.end(),
                                   [&](const auto& one) { return one.path == path; });
  result.is_whole = true;
  if (device == devices.end()) return result;
  wanted.device = *device;
  result.is_whole =
      log.get_params(*device, wanted.params) == 0 &&
      log.get_trend_data(data, wanted, {{.interval = 1}}, {-1, -1}, 0, 0, true, true) == 0;
  std::int64_t first = -1;
  std::int64_t in_transaction = 0;
  for (const CSnapshot& row : data.snapshots) {
    const auto number = static_cast<std::int64_t>(row.samples.at(0).actual);
    if (first == -1) first = number;
    if (number != result.number) {
      const bool is_next = result.number == -1 || number == result.number + 1;
      const bool was_complete =
          result.number == first || result.number == -1 || in_transaction == rows_of(result.number);
      result.is_whole = result.is_whole && is_next && was_complete;
      in_transaction = 0;
    }
    result.is_whole = result.is_whole && (result.rows == 0 || row.timestamp == result.time + 60);
    result.number = number;
    result.time = row.timestamp;
    ++in_transaction;
    ++result.rows;
  }
  if (result.number > first && in_transaction != rows_of(result.number)) result.is_whole = false;
  return result;
}

TEST(Soak, AKilledWriterLosesNothingThatItHasCommitted) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  std::mt19937 random(1);
  int kills = 0;
  unsigned longest = 40;  // milliseconds until a kill
  Recorded last{.is_whole = true, .rows = 0, .number = 0, .time = 60};
  const Clock::time_point start_time = Clock::now();
  while (last.number == 0 || Clock::now() - start_time < duration()) {
    Pipe acknowledged;
    const pid_t writer = start([&] {
      return record(db, "d", last.number + 1, last.time, [&](std::int64_t number) {
        acknowledged.write(number);
        return true;
      });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1 + random() % longest));
    kill(writer, SIGKILL);
    ASSERT_EQ(wait_for(writer), 128 + SIGKILL);
    ++kills;
    const std::vector<std::int64_t> numbers = acknowledged.read_all();
    const std::int64_t committed = numbers.empty() ? last.number : numbers.back();
    // On a slow machine a commit takes longer.
    if (last.number == 0 && numbers.empty()) longest = std::min(2 * longest, 5000U);
    // A process that was killed at once has not even made the database.
    if (!std::filesystem::exists(db)) continue;
    CLog log;
    ASSERT_EQ(log.open(db, OpenOptions{}), 0) << log.error();
    const Recorded now = read_back(log, "d");
    ASSERT_TRUE(now.is_whole) << "after " << kills << " kills: " << log.error();
    if (now.rows == 0) continue;
    // The last transaction may be committed though nobody was told.
    ASSERT_GE(now.number, committed);
    ASSERT_LE(now.number, committed + 1);
    last = now;
    std::vector<CDamage> damage;
    ASSERT_EQ(log.check(damage), 0) << log.error();
    ASSERT_TRUE(damage.empty()) << damage.front().text;
  }
  std::printf("%d kills, %lld transactions\n", kills, static_cast<long long>(last.number));
}

TEST(Soak, ReadersNeverSeeAPartOfATransaction) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(duration());
  const auto is_time = [&](std::int64_t) {
    // Who waits for the lock looks for it now and then. Without a pause it would never be free
    // then.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return Clock::now() < end;
  };
  ASSERT_TRUE(record(db, "a", 0, 60, [](std::int64_t) { return false; }));
  Pipe reads;
  std::vector<pid_t> processes;
  processes.push_back(start([&] { return record(db, "a", 1, 120, is_time); }));
  processes.push_back(start([&] { return record(db, "b", 0, 60, is_time); }));
  for (int i = 0; i < 3; ++i) {
    processes.push_back(start([&] {
      CLog log;
      std::int64_t count = 0;
      std::int64_t newest = 0;
      for (; is_time(0); ++count) {
        // Some readers keep the log open, others open it for each read.
        if ((i == 0 || count == 0) && log.open(db, OpenOptions{}) != 0) return false;
        for (const char* path : {"a", "b"}) {
          const Recorded now = read_back(log, path);
          if (!now.is_whole) {
            std::fprintf(stderr, "%s after %lld: %s\n", path, static_cast<long long>(now.number),
                         log.error().c_str());
            return false;
          }
          if (path[0] != 'a') continue;
          if (now.number < newest) return false;
          newest = now.number;
        }
      }
      reads.write(count);
      return true;
    }));
  }
  for (const pid_t process : processes) EXPECT_EQ(wait_for(process), 0);
  std::int64_t sum = 0;
  for (const std::int64_t count : reads.read_all()) sum += count;
  CLog log;
  ASSERT_EQ(log.open(db, OpenOptions{}), 0);
  const std::int64_t a = read_back(log, "a").number;
  const std::int64_t b = read_back(log, "b").number;
  EXPECT_GT(std::min({sum, a, b}), 0);
  std::printf("%lld reads beside %lld and %lld transactions\n", static_cast<long long>(sum),
              static_cast<long long>(a), static_cast<long long>(b));
}

/// Rows as trendload takes them, `count` from the row `first` on.
std::string make_csv(int first, int count) {
  std::string text = "Date,Time,p:.ValueIntAvg\n";
  for (int i = first; i < first + count; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%04d-%02d-%02d,%02d:%02d,%d\n", 2000 + i / 483'840,
                  1 + i / 40'320 % 12, 1 + i / 1440 % 28, i / 60 % 24, i % 60, i);
    text += line;
  }
  return text;
}

TEST(Soak, TwoLoadsAtOnceRecordBoth) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const Clock::time_point start_time = Clock::now();
  int loads = 0;
  int rows = 0;
  std::string expected = "Date,Time,p:.ValueIntAvg\n";
  constexpr int COUNT = 500;
  while (loads == 0 || Clock::now() - start_time < duration()) {
    const std::string text = make_csv(rows, COUNT);
    std::ofstream(folder.file("rows.csv")) << text;
    std::vector<pid_t> processes;
    for (const char* device : {"a", "b"}) {
      processes.push_back(start_process(tool_command(
          "trendload", {"-x", db, "-d", device, "-i", "1", "-u", folder.file("rows.csv")})));
    }
    for (const pid_t process : processes) ASSERT_EQ(wait_for(process), 0);
    ++loads;
    rows += COUNT;
    expected += text.substr(text.find('\n') + 1);
  }
  for (const char* device : {"a", "b"}) {
    const ProcessResult dump = run_tool("trendcsv", {"-x", db, "-d", device, "-u", "-a"});
    EXPECT_EQ(dump.err, "");
    EXPECT_EQ(dump.out.substr(dump.out.find('\n')), expected.substr(expected.find('\n')));
  }
  std::printf("%d pairs of loads, %d rows each\n", loads, COUNT);
}

/// Dumps the log, and prints how long that took. Returns the largest memory of the program in KiB.
std::int64_t dump_long_log(const std::string& db, std::int64_t rows) {
  const Clock::time_point start_time = Clock::now();
  std::vector<std::string> command = tool_command("trendcsv", {"-x", db, "-d", "d"});
  command.insert(command.begin(), {"/bin/sh", "-c", "exec \"$@\" >/dev/null", "sh"});
  Pipe peak;
  EXPECT_EQ(
      wait_for(start([&] {
        // The allocator of the sanitizers would keep what is freed.
        const Environment environment = {{"ASAN_OPTIONS", "quarantine_size_mb=1:detect_leaks=0"}};
        const int status = run_process(command, "", environment).exit_status;
        rusage usage{};
        getrusage(RUSAGE_CHILDREN, &usage);
        peak.write(usage.ru_maxrss);
        return status == 1;  // that of a complete dump
      })),
      0);
  const double seconds = Seconds(Clock::now() - start_time).count();
  const std::int64_t kib = peak.read_all().at(0);
  std::printf("%lld rows dumped in %.2f s, %.0f rows/s, with %lld KiB\n",
              static_cast<long long>(rows), seconds, static_cast<double>(rows) / seconds,
              static_cast<long long>(kib));
  return kib;
}

/// Adds rows to the log until it has `most`, or `seconds` are over. Returns false on failure.
bool record_long_log(const std::string& db, std::int64_t& rows, std::int64_t most,
                     Seconds seconds) {
  CRecorder recorder;
  CDeviceProperties device{.path = "d", .aux_text = ""};
  CParamProperties param{.path = "p", .has_min = true, .has_max = true, .has_avg = true};
  CSeries series;
  if (recorder.open(db) != 0 || recorder.begin() != 0 || recorder.add_device(device) != 0 ||
      recorder.add_param(device, param) != 0 || recorder.add_series(device, 1, series) != 0) {
    return false;
  }
  std::mt19937 random(2);
  const Clock::time_point start_time = Clock::now();
  while (rows < most && Clock::now() - start_time < seconds) {
    for (int i = 0; i < 10'000; ++i) {
      const double value = 0.1 * static_cast<double>(random() % 1000);
      const double values[] = {value - 1, value + 1, value};
      if (recorder.append(series, 60 * ++rows, 1, values) != 0) return false;
    }
    if (recorder.commit() != 0 || recorder.begin() != 0) return false;
  }
  return true;
}

TEST(Soak, ALongLogIsDumpedInTheMemoryOfAShortOne) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  std::int64_t rows = 0;
  std::vector<std::int64_t> peaks;
  constexpr std::int64_t FEW = 50'000;
  constexpr std::int64_t MOST = 100'000'000;
  for (const std::int64_t most : {FEW, MOST}) {
    // What a program takes counts from its fork on, so this process must stay small.
    Pipe recorded;
    const Clock::time_point start_time = Clock::now();
    ASSERT_EQ(wait_for(start([&] {
                const Seconds limit = most == FEW ? Seconds(1e9) : duration() * 0.8;
                if (!record_long_log(db, rows, most, limit)) return false;
                recorded.write(rows);
                return true;
              })),
              0);
    const std::int64_t before = rows;
    rows = recorded.read_all().at(0);
    const double seconds = Seconds(Clock::now() - start_time).count();
    std::printf("%lld rows recorded in %.2f s, a file of %.0f MiB\n",
                static_cast<long long>(rows - before), seconds,
                static_cast<double>(std::filesystem::file_size(db)) / (1024 * 1024));
    peaks.push_back(dump_long_log(db, rows));
  }
  constexpr std::int64_t SLACK = 2048;
  EXPECT_LE(peaks[1], peaks[0] + SLACK);
}

}  // namespace
}  // namespace toolkit::trend
