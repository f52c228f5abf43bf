#include "libtrend/sqlite/aside_file.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace toolkit::trend {

AsideFile::~AsideFile() {
  if (file_ >= 0) close(file_);
  if (!name_.empty()) unlink(name_.c_str());
}

bool AsideFile::create(const std::string& path) {
  // A file of this name may be left from a program that was killed, or may be in use.
  for (int number = 0; number < 1000; ++number) {
    name_ = path + "-new" + std::to_string(number);
    file_ = open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file_ >= 0) return true;
    if (errno != EEXIST) break;
  }
  name_.clear();
  return false;
}

bool AsideFile::fill(std::span<const unsigned char> content) {
  while (!content.empty()) {
    const ssize_t written = write(file_, content.data(), content.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) content = content.subspan(static_cast<std::size_t>(written));
  }
  if (fsync(file_) != 0) return false;
  // Close the file before others can lock it: closing it later would release the locks that other
  // connections of this process have on it.
  const int file = std::exchange(file_, -1);
  return close(file) == 0;
}

bool AsideFile::move_to(const std::string& path) {
  if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
    name_.clear();
    return true;
  }
  // Not every file system supports RENAME_NOREPLACE.
  return errno != EEXIST && link(name_.c_str(), path.c_str()) == 0;
}

bool fail_with_system_error(std::string& error) {
  error = std::strerror(errno);
  return false;
}

bool sync_folder(const std::string& path) {
  const int folder = open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_CLOEXEC);
  // If the folder can't be read, or its file system can't sync folders, nothing more can be done.
  if (folder < 0) return true;
  const bool has_failed = fsync(folder) != 0 && errno == EIO;
  close(folder);
  if (has_failed) errno = EIO;
  return !has_failed;
}

std::string resolve(const std::string& path) {
  sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
  std::vector<char> name(static_cast<std::size_t>(vfs->mxPathname) + 1);
  const int status = vfs->xFullPathname(vfs, path.c_str(), vfs->mxPathname, name.data());
  return (status & 0xFF) == SQLITE_OK ? name.data() : "";
}

}  // namespace toolkit::trend
