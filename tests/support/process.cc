#include "tests/support/process.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool IS_SANITIZED = true;
#elif defined(__has_feature)
constexpr bool IS_SANITIZED = __has_feature(address_sanitizer);
#else
constexpr bool IS_SANITIZED = false;
#endif

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open_scratch_file() {
  File file(std::tmpfile());
  if (!file) throw std::runtime_error("can't make a temporary file");
  return file;
}

std::string read_all(std::FILE* file) {
  std::string content;
  std::rewind(file);
  char buffer[65536];
  while (const std::size_t size = std::fread(buffer, 1, sizeof buffer, file)) {
    content.append(buffer, size);
  }
  return content;
}

}  // namespace

ProcessResult run_process(const std::vector<std::string>& command, const std::string& input,
                          const Environment& environment,
                          const std::function<void()>& before_start) {
  const File in = open_scratch_file();
  const File out = open_scratch_file();
  const File err = open_scratch_file();
  if (std::fwrite(input.data(), 1, input.size(), in.get()) != input.size()) {
    throw std::runtime_error("can't write a temporary file");
  }
  std::rewind(in.get());
  const pid_t child = start_process(command, environment, [&] {
    dup2(fileno(in.get()), STDIN_FILENO);
    dup2(fileno(out.get()), STDOUT_FILENO);
    dup2(fileno(err.get()), STDERR_FILENO);
    if (before_start) before_start();
  });
  ProcessResult result;
  result.exit_status = wait_for(child);
  result.out = read_all(out.get());
  result.err = read_all(err.get());
  return result;
}

pid_t start_process(const std::vector<std::string>& command, const Environment& environment,
                    const std::function<void()>& before_start) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("can't start a process");
  if (child == 0) {
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    if (before_start) before_start();
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  return child;
}

int wait_for(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void note_no_coverage() { setenv("LLVM_PROFILE_FILE", "/dev/null", 1); }

void become(uid_t user) {
  if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) _exit(98);
  note_no_coverage();
}

std::function<void()> enter(const std::string& folder) {
  return [folder] {
    if (chdir(folder.c_str()) != 0) _exit(127);
  };
}

std::vector<std::string> tool_command(const std::string& name,
                                      const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {TRENDCSV_EMULATOR};
  command.push_back(std::string(TRENDCSV_BINARY_DIR) + "/" + name);
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ProcessResult run_tool(const std::string& name, const std::vector<std::string>& arguments,
                       const std::string& input, const Environment& environment,
                       const std::function<void()>& before_start) {
  return run_process(tool_command(name, arguments), input, environment, before_start);
}

bool is_emulated() { return tool_command("trendcsv").size() > 1; }

int random_rounds(int count, int fewest) {
  return std::max(is_emulated() ? count / 12 : IS_SANITIZED ? count / 2 : count, fewest);
}

std::size_t damage_step() { return is_long_run() ? 1 : is_emulated() ? 64 : IS_SANITIZED ? 16 : 7; }

bool is_long_run() { return std::getenv("TRENDCSV_LONG_TESTS") != nullptr; }

TemporaryFolder::TemporaryFolder() {
  std::string path = std::filesystem::temp_directory_path() / "trendcsv-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("can't make a folder");
  path_ = path;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string read_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
