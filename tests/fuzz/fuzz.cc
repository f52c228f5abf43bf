#include "tests/fuzz/fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/support/process.h"

namespace {

/// Puts a stream that keeps all that is written in the place of `stdout` or `stderr`. The program
/// under test may close it.
class Replaced {
 public:
  explicit Replaced(std::FILE*& stream) : stream_(stream), before_(stream) {
    std::fflush(stream);
    stream_ = fopencookie(this, "w", {nullptr, write, nullptr, note_close});
  }
  ~Replaced() { static_cast<void>(finish()); }
  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;

  /// Puts the stream back that was there before. Returns what was written.
  [[nodiscard]] const std::string& finish() {
    if (!is_closed_) std::fclose(stream_);
    stream_ = before_;
    return text_;
  }

 private:
  static ssize_t write(void* cookie, const char* text, std::size_t size) {
    static_cast<Replaced*>(cookie)->text_.append(text, size);
    return static_cast<ssize_t>(size);
  }
  static int note_close(void* cookie) {
    static_cast<Replaced*>(cookie)->is_closed_ = true;
    return 0;
  }

  std::FILE*& stream_;
  std::FILE* before_;
  std::string text_;
  bool is_closed_ = false;
};

/// Puts a file in the place of the descriptor of standard output, to which libFuzzer does not
/// write, and returns it. The program under test may have closed the one before.
int replace_output() {
  static const int file = memfd_create("output", MFD_CLOEXEC);
  demand(file >= 0 && dup2(file, STDOUT_FILENO) == STDOUT_FILENO, "can't capture output");
  return file;
}

/// Puts a file with `text` in the place of the descriptor of standard input.
void replace_input(const std::string& text) {
  static const int file = memfd_create("input", MFD_CLOEXEC);
  const auto size = static_cast<ssize_t>(text.size());
  demand(file >= 0 && ftruncate(file, 0) == 0 &&
             pwrite(file, text.data(), text.size(), 0) == size && lseek(file, 0, SEEK_SET) == 0 &&
             dup2(file, STDIN_FILENO) == STDIN_FILENO,
         "can't replace the input");
}

/// Returns what is in `file`, and empties it.
std::string take_all(int file) {
  std::string text;
  std::array<char, 65536> buffer;
  lseek(file, 0, SEEK_SET);
  for (ssize_t size; (size = read(file, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
  demand(ftruncate(file, 0) == 0, "can't empty the output");
  lseek(file, 0, SEEK_SET);
  return text;
}

const std::filesystem::path& work_folder() {
  static const TemporaryFolder folder;
  return folder.path();
}

}  // namespace

void demand(bool holds, std::string_view what) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: %.*s\n", static_cast<int>(what.size()), what.data());
  std::abort();
}

void demand_equal(std::string_view actual, std::string_view expected, std::string_view what) {
  if (actual == expected) return;
  demand(false,
         std::string(what).append(":\n").append(actual).append("\ninstead of:\n").append(expected));
}

void enter_work_folder() {
  static const bool is_entered = [] {
    std::filesystem::current_path(work_folder());
    return true;
  }();
  static_cast<void>(is_entered);
}

void clear_work_folder() {
  for (const auto& entry : std::filesystem::directory_iterator(work_folder())) {
    std::filesystem::remove_all(entry.path());
  }
}

Captured capture(const std::function<int()>& function, const std::string& input) {
  const int file = replace_output();
  replace_input(input);
  Captured result;
  {
    Replaced out(stdout);
    Replaced err(stderr);
    result.status = function();
    result.out = out.finish();
    result.err = err.finish();
  }
  result.out += take_all(file);
  return result;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (std::size_t end; (end = text.find(separator)) != text.npos;) {
    parts.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  parts.emplace_back(text);
  return parts;
}

std::vector<char*> to_argv(std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return argv;
}
