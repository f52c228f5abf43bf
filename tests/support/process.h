// Runs programs, and makes folders for their files.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// How a program ended, and what it wrote.
struct ProcessResult {
  int exit_status = -1;  ///< 128 plus the signal's number if a signal ended it, as in a shell
  std::string out;
  std::string err;
};

/// Environment variables to set.
using Environment = std::vector<std::pair<std::string, std::string>>;

/// Runs `command`, a program's path and its arguments, with `input` on its standard input, and
/// waits until it ends. `before_start` runs in the new process just before the program.
[[nodiscard]] ProcessResult run_process(const std::vector<std::string>& command,
                                        const std::string& input = "",
                                        const Environment& environment = {},
                                        const std::function<void()>& before_start = {});

/// Starts `command` as `run_process` does, with the standard streams of the test, and returns the
/// id of the process. `wait_for` must follow.
[[nodiscard]] pid_t start_process(const std::vector<std::string>& command,
                                  const Environment& environment = {},
                                  const std::function<void()>& before_start = {});

/// Waits until the process `child` ends. Returns its exit status as `ProcessResult` has it.
[[nodiscard]] int wait_for(pid_t child);

/// For `before_start`: makes `folder` the working directory.
[[nodiscard]] std::function<void()> enter(const std::string& folder);

/// For `before_start`: lets the program not note for scripts/coverage what it runs, where it could
/// not write that.
void note_no_coverage();

/// For `before_start`: makes the program one of `user`, who is in no group.
void become(uid_t user);

/// Runs one of the project's own programs, with a name like "trendcsv". Uses the emulator if the
/// build is for another machine.
[[nodiscard]] ProcessResult run_tool(const std::string& name,
                                     const std::vector<std::string>& arguments,
                                     const std::string& input = "",
                                     const Environment& environment = {},
                                     const std::function<void()>& before_start = {});

/// The command that runs one of the project's own programs.
[[nodiscard]] std::vector<std::string> tool_command(const std::string& name,
                                                    const std::vector<std::string>& arguments = {});

/// Whether the project's own programs run under the emulator, where all is slow.
[[nodiscard]] bool is_emulated();

/// How many rounds of a random test to run: `count`, half of that under sanitizers, a twelfth under
/// the emulator, but not fewer than `fewest`.
[[nodiscard]] int random_rounds(int count, int fewest = 1);

/// How far it is from one byte of a file that a test changes to the next: 1 in a long run, and
/// further where tests are slow.
[[nodiscard]] std::size_t damage_step();

/// Whether tests that try a part of many cases are to try them all: TRENDCSV_LONG_TESTS is in the
/// environment.
[[nodiscard]] bool is_long_run();

/// A temporary folder. The destructor removes it with its files.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// The path of a file of this name in the folder.
  [[nodiscard]] std::string file(const std::string& name) const { return path_ / name; }
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

[[nodiscard]] std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& content);
