// A user dumps the database of another user. These tests start programs as other users, so they
// need root.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/model.h"
#include "tests/support/version_1.h"

using namespace toolkit::trend;

namespace {

namespace fs = std::filesystem;

constexpr uid_t OWNER = 65533;
constexpr uid_t OTHER = 65534;

/// Makes this process act as another user while the object exists.
class ActingAs {
 public:
  explicit ActingAs(uid_t user) {
    if (seteuid(user) != 0) throw std::runtime_error("can't act as another user");
  }
  ~ActingAs() {
    if (seteuid(0) != 0) abort();
  }
  ActingAs(const ActingAs&) = delete;
  ActingAs& operator=(const ActingAs&) = delete;
};

/// A folder that all users may write, with programs that all users may start.
class OtherUser : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can start programs as other users";
    fs::permissions(folder_.path(), fs::perms(0755));
    fs::create_directory(shared_);
    fs::permissions(shared_, fs::perms(0777));
    for (const char* name : {"trendcsv", "trendload"}) {
      fs::copy_file(tool_command(name).back(), folder_.file(name));
    }
  }

  ProcessResult run_as(uid_t user, const std::string& name,
                       const std::vector<std::string>& arguments, const std::string& input) const {
    std::vector<std::string> command = tool_command(name);
    command.back() = folder_.file(name);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_process(command, input, {}, [user] { become(user); });
  }

  /// Loads the row of this minute of the first hour of 2020.
  void load_as(uid_t user, int minute) const {
    const std::string time = "00:" + std::to_string(minute / 10) + std::to_string(minute % 10);
    const ProcessResult result =
        run_as(user, "trendload", {"-x", db_, "-d", "/plant", "-i", "1", "-u"},
               "Date,Time,a:Value\n2020-01-01," + time + ",1\n");
    ASSERT_EQ(result.err, "");
    ASSERT_EQ(result.exit_status, 0);
  }

  ProcessResult dump_as(uid_t user) const {
    return run_as(user, "trendcsv",
                  {"-x", db_, "-d", "/plant", "-u", "-nh", "-w", "%M", "-y", "%S"}, "");
  }

  /// Opens the database in this process as `user`. Returns the error, or an empty text.
  std::string open_as(uid_t user) const {
    const ActingAs acting(user);
    CLog log;
    return log.open(db_, OpenOptions{}) == 0 ? "" : log.error();
  }

  /// Leaves the database in the state after a writer was killed: the log holds a row.
  void make_unclosed() const {
    const std::string live = folder_.file("live.db");
    record({.params = {{"a", ACTUAL}}, .minutes = {1}, .rows = {{1, 60, 1, {5}}}}, live);
    run_sql(live, TURN_INTO_VERSION_1);
    run_sql(live, insert_row(2), [&] {
      for (const char* suffix : {"", "-wal"}) {
        fs::copy_file(live + suffix, db_ + suffix);
        ASSERT_EQ(chown((db_ + suffix).c_str(), OWNER, OWNER), 0);
      }
    });
  }

  static uid_t owner_of(const std::string& file) {
    struct stat status = {};
    EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
    return status.st_uid;
  }

  TemporaryFolder folder_;
  std::string shared_ = folder_.file("shared");
  std::string db_ = shared_ + "/trend.db";
};

TEST_F(OtherUser, DoesNotStopTheOwnerFromWriting) {
  load_as(OWNER, 1);
  EXPECT_EQ(dump_as(OTHER).out, "01,00,1\n");
  EXPECT_EQ(list_folder(shared_), std::vector<std::string>{"trend.db"});
  load_as(OWNER, 2);
  EXPECT_EQ(dump_as(OTHER).out, "02,00,1\n01,00,1\n");
  EXPECT_EQ(list_folder(shared_), std::vector<std::string>{"trend.db"});
}

TEST_F(OtherUser, CannotRecordIntoAFileOfAnother) {
  ASSERT_EQ(CRecorder().open(db_), 0);
  const ActingAs acting(OTHER);
  CRecorder recorder;
  EXPECT_NE(recorder.open(db_), 0);
  EXPECT_EQ(recorder.error(), "it is not writable");
}

TEST_F(OtherUser, MakesADatabaseInAFolderThatItCannotRead) {
  fs::permissions(shared_, fs::perms(0733));
  const ActingAs acting(OTHER);
  CRecorder recorder;
  EXPECT_EQ(recorder.open(db_), 0) << recorder.error();
}

TEST_F(OtherUser, LeavesNoFileInItsOwnFolder) {
  load_as(OWNER, 1);
  ASSERT_EQ(chown(shared_.c_str(), OTHER, OTHER), 0);
  EXPECT_EQ(dump_as(OTHER).out, "01,00,1\n");
  EXPECT_EQ(list_folder(shared_), std::vector<std::string>{"trend.db"});
}

TEST_F(OtherUser, DumpsBesideALivingWriter) {
  load_as(OWNER, 1);
  const ActingAs acting(OWNER);
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0) << recorder.error();
  CDeviceProperties device;
  device.path = "/plant";
  CSeries series;
  for (int minute = 2; minute < 5; ++minute) {
    ASSERT_EQ(recorder.begin(), 0) << recorder.error();
    ASSERT_EQ(recorder.add_device(device), 0);
    ASSERT_EQ(recorder.add_series(device, 1, series), 0);
    ASSERT_EQ(recorder.append(series, 1577836800 + 60 * minute, 1, std::vector<double>{1}), 0);
    ASSERT_EQ(recorder.commit(), 0) << recorder.error();
    ASSERT_EQ(seteuid(0), 0);
    const std::string rows = dump_as(OTHER).out;
    ASSERT_EQ(seteuid(OWNER), 0);
    EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), minute);
  }
  recorder.close();
  EXPECT_EQ(list_folder(shared_), std::vector<std::string>{"trend.db"});
}

TEST_F(OtherUser, SeesRowsRecordedWhileTheDatabaseIsOpen) {
  load_as(OWNER, 1);
  std::vector<CDeviceProperties> devices;
  CLog log;
  const auto count_rows = [&] {
    const ActingAs acting(OTHER);
    CDeviceData data;
    EXPECT_EQ(log.get_trend_data(data, {.device = devices.at(0), .params = {}}, {{.interval = 1}},
                                 {-1, -1}, 0, 0, true, true),
              0)
        << log.error();
    return data.snapshots.size();
  };
  {
    const ActingAs acting(OTHER);
    ASSERT_EQ(log.open(db_, OpenOptions{}), 0) << log.error();
    ASSERT_EQ(log.get_devices(devices), 0);
  }
  EXPECT_EQ(count_rows(), 1U);
  for (int minute = 2; minute < 6; ++minute) {
    load_as(OWNER, minute);
    EXPECT_EQ(count_rows(), static_cast<std::size_t>(minute));
  }
  log.close();
  for (const std::string& file : list_folder(shared_)) {
    EXPECT_EQ(owner_of(shared_ + "/" + file), OWNER) << file;
  }
  load_as(OWNER, 6);
  EXPECT_EQ(list_folder(shared_), std::vector<std::string>{"trend.db"});
}

TEST_F(OtherUser, CannotReadADatabaseThatWasNotClosed) {
  make_unclosed();
  const std::vector<std::string> files = list_folder(shared_);
  EXPECT_EQ(dump_as(OTHER).err, "Error opening trend db: '" + db_ + "'\n");
  EXPECT_EQ(open_as(OTHER), "it was not closed properly, and only its owner can recover it");
  EXPECT_EQ(list_folder(shared_), files);
}

TEST_F(OtherUser, ReadsWhatTheOwnerRecovered) {
  make_unclosed();
  EXPECT_EQ(dump_as(OWNER).out, "02,00,2\n01,00,5\n");
  EXPECT_EQ(dump_as(OTHER).out, "02,00,2\n01,00,5\n");
  EXPECT_EQ(owner_of(db_ + "-shm"), OWNER);
}

TEST_F(OtherUser, ReadsWhatRootRecovered) {
  make_unclosed();
  EXPECT_EQ(dump_as(0).out, "02,00,2\n01,00,5\n");
  EXPECT_EQ(owner_of(db_ + "-shm"), OWNER);
  EXPECT_EQ(dump_as(OTHER).out, "02,00,2\n01,00,5\n");
  load_as(OWNER, 3);
  EXPECT_EQ(list_folder(shared_), std::vector<std::string>{"trend.db"});
}

TEST_F(OtherUser, DoesNotCreateTheIndexOfAWritableDatabase) {
  make_unclosed();
  fs::permissions(db_, fs::perms(0666));
  EXPECT_NE(open_as(OTHER), "");
  EXPECT_FALSE(fs::exists(db_ + "-shm"));
}

}  // namespace
