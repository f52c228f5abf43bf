#include "trendtool/common/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;

class TestOutputFile : public testing::Test {
 protected:
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder_.path())) {
      result.push_back(entry.path().filename());
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("out.csv");
  std::string db_ = folder_.file("trend.db");
};

using Names = std::vector<std::string>;

TEST_F(TestOutputFile, AppearsWhenItIsComplete) {
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_)) << out.error();
  EXPECT_TRUE(out.write("one\n"));
  EXPECT_TRUE(out.flush());
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_TRUE(out.write("two\n"));
  ASSERT_TRUE(out.finish()) << out.error();
  EXPECT_EQ(read_file(path_), "one\ntwo\n");
  EXPECT_EQ(names(), Names{"out.csv"});
}

TEST_F(TestOutputFile, WritesTextsOfAnyLength) {
  std::string expected;
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  for (const std::size_t size : {1U, 65535U, 65536U, 65537U, 1U, 300000U, 30000U, 30000U, 30000U}) {
    const std::string text(size, static_cast<char>('a' + expected.size() % 26));
    expected += text;
    EXPECT_TRUE(out.write(text));
  }
  ASSERT_TRUE(out.finish());
  EXPECT_EQ(read_file(path_), expected);
}

TEST_F(TestOutputFile, LeavesNothingIfItIsNotFinished) {
  {
    OutputFile out;
    ASSERT_TRUE(out.open(path_, db_));
    EXPECT_TRUE(out.write("one\n"));
    EXPECT_TRUE(out.flush());
  }
  EXPECT_EQ(names(), Names());
}

TEST_F(TestOutputFile, ReplacesAFileAndKeepsItsPermissions) {
  write_file(path_, "before");
  chmod(path_.c_str(), 0640);
  {
    OutputFile out;
    ASSERT_TRUE(out.open(path_, db_));
    EXPECT_TRUE(out.write("half"));
  }
  EXPECT_EQ(read_file(path_), "before");
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  EXPECT_TRUE(out.write("after"));
  ASSERT_TRUE(out.finish());
  EXPECT_EQ(read_file(path_), "after");
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0640));
  EXPECT_EQ(names(), Names{"out.csv"});
}

TEST_F(TestOutputFile, WritesThroughALink) {
  write_file(folder_.file("target.csv"), "before");
  fs::create_symlink("target.csv", path_);
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  EXPECT_TRUE(out.write("after"));
  ASSERT_TRUE(out.finish());
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_EQ(read_file(folder_.file("target.csv")), "after");
}

TEST_F(TestOutputFile, MakesTheFileThatALooseLinkNames) {
  fs::create_symlink("target.csv", path_);
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  EXPECT_TRUE(out.write("after"));
  ASSERT_TRUE(out.finish());
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_EQ(read_file(folder_.file("target.csv")), "after");
}

TEST_F(TestOutputFile, SaysWhyItCantBeOpened) {
  OutputFile in_no_folder;
  EXPECT_FALSE(in_no_folder.open(folder_.file("none/out.csv"), db_));
  EXPECT_EQ(in_no_folder.error(),
            "can't open '" + folder_.file("none/out.csv") + "': No such file or directory");
  OutputFile folder;
  EXPECT_FALSE(folder.open(folder_.path(), db_));
  EXPECT_EQ(folder.error(), "can't open '" + folder_.path().string() + "': Is a directory");
  OutputFile database;
  write_file(db_, "a database");
  EXPECT_FALSE(database.open(db_, db_));
  EXPECT_EQ(database.error(),
            "can't write '" + db_ + "': it is a file of the database; choose another name");
  EXPECT_EQ(read_file(db_), "a database");
}

TEST_F(TestOutputFile, WritesADeviceDirectlyAndSaysThatItIsFull) {
  OutputFile out;
  ASSERT_TRUE(out.open("/dev/full", db_)) << out.error();
  EXPECT_TRUE(out.write("one\n"));
  EXPECT_FALSE(out.finish());
  EXPECT_EQ(out.error(), "can't write '/dev/full': No space left on device");
}

TEST_F(TestOutputFile, WritesAPipeDirectly) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  const int reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK);
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  EXPECT_TRUE(out.write("one\n"));
  ASSERT_TRUE(out.finish());
  char text[10] = {};
  EXPECT_EQ(read(reader, text, sizeof text), 4);
  EXPECT_STREQ(text, "one\n");
  close(reader);
  EXPECT_EQ(names(), Names{"out.csv"});
}

TEST_F(TestOutputFile, ASignalLeavesNothing) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    write_file(path_, "before");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      OutputFile out;
      const bool is_written = out.open(path_, db_) && out.write("half") && out.flush();
      if (is_written) std::raise(number);
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), number);
    EXPECT_EQ(names(), Names{"out.csv"});
    EXPECT_EQ(read_file(path_), "before");
  }
}

TEST_F(TestOutputFile, RefusesAFileThatMustNotBeWritten) {
  write_file(path_, "before");
  chmod(path_.c_str(), 0444);
  // The rights that count are those of the user who started the program.
  constexpr uid_t NOBODY = 65534;
  const uid_t user = getuid();
  if (user == 0) {
    ASSERT_EQ(setresuid(NOBODY, 0, 0), 0);
  }
  OutputFile out;
  EXPECT_FALSE(out.open(path_, db_));
  if (user == 0) {
    ASSERT_EQ(setresuid(0, 0, 0), 0);
  }
  EXPECT_EQ(out.error(), "can't open '" + path_ + "': Permission denied");
  EXPECT_EQ(read_file(path_), "before");
}

TEST_F(TestOutputFile, SaysThatANameIsTooLong) {
  std::string path = folder_.path();
  while (path.size() < 4090) path += path.size() < 4080 ? "/." : "/a";
  OutputFile out;
  EXPECT_FALSE(out.open(path, db_));
  EXPECT_EQ(out.error(), "can't open '" + path + "': File name too long");
  write_file(path_, "a file");
  OutputFile in_file;
  EXPECT_FALSE(in_file.open(path_ + "/out.csv", db_));
  EXPECT_EQ(in_file.error(), "can't open '" + path_ + "/out.csv': Not a directory");
}

TEST_F(TestOutputFile, FailsOnceAWriteHasFailed) {
  const std::string text(100'000, 'x');
  OutputFile written;
  ASSERT_TRUE(written.open("/dev/full", db_));
  EXPECT_FALSE(written.write(text));
  OutputFile written_twice;
  ASSERT_TRUE(written_twice.open("/dev/full", db_));
  EXPECT_TRUE(written_twice.write(text.substr(0, 60'000)));
  EXPECT_FALSE(written_twice.write(text.substr(0, 60'000)));
  OutputFile added;
  ASSERT_TRUE(added.open("/dev/full", db_));
  added.add(text);
  EXPECT_TRUE(added.has_failed());
  EXPECT_FALSE(added.finish());
  EXPECT_EQ(added.error(), "can't write '/dev/full': No space left on device");
}

TEST_F(TestOutputFile, SaysWhyItCantBeCompleted) {
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  out.add("one\n");
  fs::create_directory(path_);
  EXPECT_FALSE(out.finish());
  EXPECT_EQ(out.error(), "can't write '" + path_ + "': Is a directory");
}

TEST_F(TestOutputFile, LeavesASignalThatIsIgnored) {
  std::signal(SIGHUP, SIG_IGN);
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  out.add("one\n");
  std::raise(SIGHUP);
  ASSERT_TRUE(out.finish());
  EXPECT_EQ(read_file(path_), "one\n");
  EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_IGN);
}

TEST_F(TestOutputFile, IsRemovedByWhatASignalCalls) {
  OutputFile out;
  ASSERT_TRUE(out.open(path_, db_));
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, &before);
  const auto call_handler = [&] {
    struct sigaction action = {};
    sigaction(SIGTERM, nullptr, &action);
    action.sa_handler(SIGTERM);
    // Then the signal comes again, to end the program.
    const timespec no_time = {};
    EXPECT_EQ(sigtimedwait(&signals, nullptr, &no_time), SIGTERM);
    sigaction(SIGTERM, &action, nullptr);
  };
  EXPECT_EQ(names().size(), 1U);
  call_handler();
  EXPECT_EQ(names(), Names());
  // Where the file is complete, it stays.
  OutputFile complete;
  ASSERT_TRUE(complete.open(path_, db_) && complete.write("one\n") && complete.finish());
  call_handler();
  EXPECT_EQ(names(), Names{"out.csv"});
  std::signal(SIGTERM, SIG_DFL);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
