#include "trendtool/common/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "text/csv.h"
#include "trendlog/database_files.h"
#include "trendtool/common/messages.h"

namespace {

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

/// The file that a signal removes. It is empty while there is none, and changes only while the
/// signals are held back.
char unfinished_path[PATH_MAX];

/// Removes the unfinished file and ends the program by the signal.
void end_by_signal(int number) {
  if (unfinished_path[0] != '\0') unlink(unfinished_path);
  std::signal(number, SIG_DFL);
  std::raise(number);
}

/// Holds the signals back as long as it exists.
class SignalsHeldBack {
 public:
  SignalsHeldBack() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : SIGNALS) sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, &before_);
  }
  ~SignalsHeldBack() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

 private:
  sigset_t before_;
};

void handle_signals() {
  for (const int number : SIGNALS) {
    struct sigaction action = {};
    // A signal that is ignored, for example under nohup, stays so.
    sigaction(number, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = end_by_signal;
    sigaction(number, &action, nullptr);
  }
}

/// The path of the file that `path` names, with all links followed. A link to a file that does not
/// exist stays as it is.
std::string follow_links(const std::string& path) {
  char followed[PATH_MAX];
  return realpath(path.c_str(), followed) != nullptr ? followed : path;
}

}  // namespace

OutputFile::~OutputFile() {
  if (file_ >= 0 && file_ != STDOUT_FILENO) close(file_);
  if (!is_temporary_) return;
  const SignalsHeldBack held_back;
  unlink(written_path_.c_str());
  unfinished_path[0] = '\0';
}

bool OutputFile::fail(const std::string& what, int error_number) {
  error_ = what + " " + name_ + ": " + std::strerror(error_number);
  return false;
}

bool OutputFile::fail_to_write(int error_number) { return fail("can't write", error_number); }

bool OutputFile::open(const std::string& path, const std::string& db_path) {
  if (path.empty()) {
    name_ = "standard output";
    file_ = STDOUT_FILENO;
    return true;
  }
  name_ = quote(path);
  if (is_database_file(path, db_path)) {
    error_ = "can't write " + name_ + ": it is a file of the database; choose another name";
    return false;
  }
  struct stat status = {};
  const bool exists = stat(path.c_str(), &status) == 0;
  if (!exists && errno != ENOENT) return fail("can't open", errno);
  struct stat link = {};
  // A link to nothing is not replaced: the file is made in the place that it names.
  const bool is_loose_link = !exists && lstat(path.c_str(), &link) == 0;
  if (is_loose_link || (exists && !S_ISREG(status.st_mode))) return open_directly(path);
  // A file that must not be written must not be replaced either.
  if (exists && access(path.c_str(), W_OK) != 0) return fail("can't open", errno);
  wanted_path_ = follow_links(path);
  return open_beside(exists ? status.st_mode & 07777U : 0);
}

bool OutputFile::open_directly(const std::string& path) {
  file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file_ < 0) return fail("can't open", errno);
  return true;
}

/// Opens a new file beside the wanted one, with the same permissions, if it has any yet.
bool OutputFile::open_beside(unsigned permissions) {
  const std::string path = wanted_path_ + ".part" + std::to_string(getpid());
  if (path.size() >= sizeof unfinished_path) return fail("can't open", ENAMETOOLONG);
  handle_signals();
  const SignalsHeldBack held_back;
  file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file_ < 0) return fail("can't open", errno);
  written_path_ = path;
  is_temporary_ = true;
  std::strcpy(unfinished_path, path.c_str());
  if (permissions != 0 && fchmod(file_, permissions) != 0) return fail("can't open", errno);
  return true;
}

bool OutputFile::write_all(std::string_view text) {
  while (!text.empty()) {
    const ssize_t size = ::write(file_, text.data(), text.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return fail_to_write(errno);
    text.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

bool OutputFile::flush() {
  const std::size_t size = used_;
  used_ = 0;
  return write_all({buffer_.data(), size});
}

bool OutputFile::write_more(std::string_view text) {
  if (!flush()) return false;
  if (text.size() > buffer_.size()) return write_all(text);
  return write(text);
}

bool OutputFile::finish() {
  if (has_failed_ || !flush()) return false;
  // The name must not appear on the disk before the content does.
  if (is_temporary_ && fsync(file_) != 0) return fail_to_write(errno);
  const int file = file_;
  file_ = -1;
  if (close(file) != 0) return fail_to_write(errno);
  if (!is_temporary_) return true;
  const SignalsHeldBack held_back;
  if (std::rename(written_path_.c_str(), wanted_path_.c_str()) != 0) return fail_to_write(errno);
  is_temporary_ = false;
  unfinished_path[0] = '\0';
  return true;
}

int print_result(std::string_view text) {
  OutputFile out;
  // Standard output is open already.
  static_cast<void>(out.open("", ""));
  out.add(text);
  return out.finish() ? SUCCESS : ::fail(out.error());
}
