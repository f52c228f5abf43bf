#include "trendlog/database_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

/// What SQLite adds to the name of a database for the files beside it. "" is the database itself.
constexpr std::array<const char*, 4> SUFFIXES = {"", "-wal", "-shm", "-journal"};

bool is_same(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// The folder part of `path`, with the '/' at its end; empty for a file of the working folder.
std::string folder_of(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

/// The file that the symbolic link at `path` names, or an empty text where there is no link.
std::string read_link(const std::string& path) {
  std::array<char, 4096> target;  // PATH_MAX: no link is longer.
  const ssize_t size = readlink(path.c_str(), target.data(), target.size());
  if (size <= 0) return {};
  const std::string text(target.data(), static_cast<std::size_t>(size));
  return text.front() == '/' ? text : folder_of(path) + text;
}

/// The path that opening `path` leads to, whether or not there is a file. The folders in it may
/// still be links.
std::string follow_links(std::string path) {
  constexpr int MAX_LINKS = 40;  // The system follows no more than that.
  for (int i = 0; i < MAX_LINKS; ++i) {
    std::string target = read_link(path);
    if (target.empty()) break;
    path = std::move(target);
  }
  return path;
}

/// Whether the two paths, which are not links, name one file in one folder. The file need not
/// exist.
bool is_same_name(const std::string& a, const std::string& b) {
  const std::string folder_a = folder_of(a);
  const std::string folder_b = folder_of(b);
  if (a.substr(folder_a.size()) != b.substr(folder_b.size())) return false;
  struct stat status_a = {};
  struct stat status_b = {};
  return stat((folder_a + ".").c_str(), &status_a) == 0 &&
         stat((folder_b + ".").c_str(), &status_b) == 0 && is_same(status_a, status_b);
}

}  // namespace

bool is_database_file(const std::string& path, const std::string& db_path) {
  const std::string db = follow_links(db_path);
  struct stat file = {};
  const bool exists = stat(path.c_str(), &file) == 0;
  const std::string followed = follow_links(path);
  return std::any_of(SUFFIXES.begin(), SUFFIXES.end(), [&](const char* suffix) {
    struct stat other = {};
    // The same file under two names has one inode, also where both are hard links.
    if (exists && stat((db + suffix).c_str(), &other) == 0) return is_same(file, other);
    return is_same_name(followed, follow_links(db + suffix));
  });
}
