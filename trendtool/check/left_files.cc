#include "trendtool/check/left_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace {

/// Returns whether another process holds one of SQLite's locks on the file. A connection to a
/// database in WAL mode always holds one.
bool is_in_use(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  // The bytes that SQLite locks, as its file format says.
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0x40000000;
  lock.l_len = 512;
  // Where locks can't be looked at, this stays as it is: the file may be in use.
  static_cast<void>(fcntl(file, F_GETLK, &lock));
  close(file);
  return lock.l_type != F_UNLCK;
}

}  // namespace

std::vector<std::string> find_left_files(const std::string& db_path) {
  char followed[PATH_MAX];
  const std::string path =
      realpath(db_path.c_str(), followed) == nullptr ? db_path : std::string(followed);
  const auto is_there = [](const std::string& file) {
    struct stat status = {};
    return lstat(file.c_str(), &status) == 0;
  };
  std::vector<std::string> files;
  for (const char* suffix : {"-wal", "-shm", "-journal"}) {
    if (is_there(path + suffix)) files.push_back(path + suffix);
  }
  // A program locks the database before it makes these files, and removes them before it unlocks.
  if (is_in_use(path)) return {};
  std::erase_if(files, [&](const std::string& file) { return !is_there(file); });
  return files;
}
