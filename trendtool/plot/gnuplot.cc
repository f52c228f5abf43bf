#include "trendtool/plot/gnuplot.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace {

/// Both ends of a pipe. They are closed with the object, and when another program is started.
class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_, O_CLOEXEC) != 0) ends_[0] = ends_[1] = -1;
  }
  ~Pipe() {
    close_end(0);
    close_end(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  [[nodiscard]] bool is_open() const { return ends_[0] >= 0; }
  [[nodiscard]] int reading_end() const { return ends_[0]; }
  [[nodiscard]] int writing_end() const { return ends_[1]; }
  void close_reading_end() { close_end(0); }
  void close_writing_end() { close_end(1); }

 private:
  void close_end(std::size_t end) {
    if (ends_[end] >= 0) close(ends_[end]);
    ends_[end] = -1;
  }

  int ends_[2];
};

/// Has a write to a pipe that nobody reads fail, instead of ending this program, as long as it
/// exists.
class BrokenPipesIgnored {
 public:
  BrokenPipesIgnored() : before_(std::signal(SIGPIPE, SIG_IGN)) {}
  ~BrokenPipesIgnored() { std::signal(SIGPIPE, before_); }
  BrokenPipesIgnored(const BrokenPipesIgnored&) = delete;
  BrokenPipesIgnored& operator=(const BrokenPipesIgnored&) = delete;

 private:
  void (*before_)(int);
};

/// The three pipes between this program and gnuplot.
struct Streams {
  Pipe in;
  Pipe out;
  Pipe err;
};

/// Starts gnuplot. Returns an error number, or 0.
int start_gnuplot(const Streams& streams, pid_t& process) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, streams.in.reading_end(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, streams.out.writing_end(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, streams.err.writing_end(), STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  // -d leaves out the settings of the user and of the machine.
  char name[] = "gnuplot";
  char no_settings[] = "-d";
  char standard_input[] = "-";
  char* const arguments[] = {name, no_settings, standard_input, nullptr};
  const int error = posix_spawnp(&process, name, &actions, &attributes, arguments, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

/// Whether the last call failed because a signal came, or because a pipe is full.
bool must_try_again() { return errno == EINTR || errno == EAGAIN; }

/// Reads once from `from` and appends it to `text`. Returns false at the end.
bool read_some(int from, std::string& text) {
  char buffer[65536];
  const ssize_t size = read(from, buffer, sizeof buffer);
  if (size < 0) return must_try_again();
  text.append(buffer, static_cast<std::size_t>(size));
  return size > 0;
}

/// Writes once from `script` and removes what is written. Returns false at the end, or where nobody
/// reads it.
bool write_some(int to, std::string_view& script) {
  const ssize_t size = write(to, script.data(), script.size());
  if (size < 0) return must_try_again();
  script.remove_prefix(static_cast<std::size_t>(size));
  return !script.empty();
}

/// Writes the script and reads both outputs, as each pipe is ready, until gnuplot closes them.
/// Returns an error number, or 0.
int exchange(Streams& streams, std::string_view script, std::string& output, std::string& errors) {
  fcntl(streams.in.writing_end(), F_SETFL, O_NONBLOCK);
  const BrokenPipesIgnored ignored;
  while (streams.out.is_open() || streams.err.is_open()) {
    // A file number below 0 is passed over.
    pollfd files[] = {{streams.in.writing_end(), POLLOUT, 0},
                      {streams.out.reading_end(), POLLIN, 0},
                      {streams.err.reading_end(), POLLIN, 0}};
    if (poll(files, std::size(files), -1) < 0) {
      if (must_try_again()) continue;
      return errno;
    }
    if (files[0].revents != 0 && !write_some(files[0].fd, script)) streams.in.close_writing_end();
    if (files[1].revents != 0 && !read_some(files[1].fd, output)) streams.out.close_reading_end();
    if (files[2].revents != 0 && !read_some(files[2].fd, errors)) streams.err.close_reading_end();
  }
  return 0;
}

/// The last line of `errors`, which says what is wrong.
std::string last_line(std::string_view errors) {
  constexpr std::string_view BLANKS = " \t\r\n";
  const std::size_t end = errors.find_last_not_of(BLANKS);
  if (end == errors.npos) return "it does not say why";
  errors = errors.substr(0, end + 1);
  // Where there is one line, there is no line feed, and `npos` + 1 is 0.
  errors.remove_prefix(errors.rfind('\n') + 1);
  return std::string(errors.substr(errors.find_first_not_of(BLANKS)));
}

constexpr const char* NOT_INSTALLED =
    "can't draw without the program gnuplot; please install it, on Debian by 'apt install "
    "gnuplot-nox'";

}  // namespace

std::string run_gnuplot(const std::string& script, std::string& output) {
  output.clear();
  Streams streams;
  if (!streams.in.is_open() || !streams.out.is_open() || !streams.err.is_open()) {
    return std::string("can't make a pipe to gnuplot: ") + std::strerror(errno);
  }
  pid_t process = -1;
  const int error = start_gnuplot(streams, process);
  if (error == ENOENT) return NOT_INSTALLED;
  if (error != 0) return std::string("can't start gnuplot: ") + std::strerror(error);
  streams.in.close_reading_end();
  streams.out.close_writing_end();
  streams.err.close_writing_end();

  std::string errors;
  const int exchange_error = exchange(streams, script, output, errors);
  // After a failure, gnuplot must not wait for this program.
  streams.in.close_writing_end();
  streams.out.close_reading_end();
  streams.err.close_reading_end();
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return std::string("can't wait for gnuplot: ") + std::strerror(errno);
  }
  if (exchange_error != 0) {
    return std::string("can't exchange data with gnuplot: ") + std::strerror(exchange_error);
  }
  if (WIFSIGNALED(status)) return "gnuplot ended by signal " + std::to_string(WTERMSIG(status));
  // Some systems report a missing program only so.
  constexpr int NOT_FOUND = 127;
  if (WEXITSTATUS(status) == NOT_FOUND && errors.empty()) return NOT_INSTALLED;
  if (WEXITSTATUS(status) != 0) return "gnuplot can't draw the picture: " + last_line(errors);
  if (output.empty()) return "gnuplot has drawn nothing: " + last_line(errors);
  return "";
}
