#include "tests/support/disk_log.h"

#include <sqlite3.h>

#include <algorithm>
#include <new>
#include <set>
#include <stdexcept>

namespace {

constexpr std::size_t SECTOR = 512;

sqlite3_vfs* base_vfs = nullptr;
std::vector<DiskChange> noted;
bool is_noting = false;

/// What this layer knows of an open file. It follows the file object of the VFS below, which works
/// on that object as ever.
struct LoggedFile {
  sqlite3_io_methods methods;
  const sqlite3_io_methods* base;
  const char* name;  ///< SQLite's, valid while the file is open; null for a temporary file
};

int base_size() { return (base_vfs->szOsFile + 7) & ~7; }

LoggedFile& logged(sqlite3_file* file) {
  return *reinterpret_cast<LoggedFile*>(reinterpret_cast<char*>(file) + base_size());
}

void note(const char* file, DiskChange::Kind kind, std::int64_t place, std::string bytes = "") {
  if (is_noting && file != nullptr) noted.push_back({kind, file, place, std::move(bytes)});
}

int write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 place) {
  note(logged(file).name, DiskChange::Kind::WRITE, place,
       {static_cast<const char*>(bytes), static_cast<std::size_t>(size)});
  return logged(file).base->xWrite(file, bytes, size, place);
}

int truncate(sqlite3_file* file, sqlite3_int64 size) {
  note(logged(file).name, DiskChange::Kind::TRUNCATE, size);
  return logged(file).base->xTruncate(file, size);
}

/// The files are not really synced, which would take time.
int sync(sqlite3_file* file, int /*flags*/) {
  note(logged(file).name, DiskChange::Kind::SYNC, 0);
  return SQLITE_OK;
}

int open_file(sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* given) {
  file->pMethods = nullptr;
  const int status = base_vfs->xOpen(base_vfs, name, file, flags, given);
  if (status != SQLITE_OK) return status;
  LoggedFile* logged_file = new (&logged(file)) LoggedFile{*file->pMethods, file->pMethods, name};
  logged_file->methods.xWrite = write;
  logged_file->methods.xTruncate = truncate;
  logged_file->methods.xSync = sync;
  file->pMethods = &logged_file->methods;
  return SQLITE_OK;
}

int remove_file(sqlite3_vfs* /*vfs*/, const char* name, int must_sync) {
  note(name, DiskChange::Kind::REMOVE, must_sync != 0 ? 1 : 0);
  return base_vfs->xDelete(base_vfs, name, 0);
}

/// Changes the file that `change` is about. A piece that is kept may lie after others that are
/// lost; between them are zeros.
void make(const DiskChange& change, Files& files) {
  const auto place = static_cast<std::size_t>(change.place);
  switch (change.kind) {
    case DiskChange::Kind::WRITE: {
      std::string& content = files[change.file];
      content.resize(std::max(content.size(), place + change.bytes.size()));
      content.replace(place, change.bytes.size(), change.bytes);
      break;
    }
    case DiskChange::Kind::TRUNCATE:
      files[change.file].resize(place);
      break;
    case DiskChange::Kind::REMOVE:
      files.erase(change.file);
      break;
    case DiskChange::Kind::SYNC:
    case DiskChange::Kind::MARK:
      break;
  }
}

/// The parts of a change that a disk makes as a whole: a write falls apart into sectors.
std::vector<DiskChange> split(const DiskChange& change) {
  if (change.kind != DiskChange::Kind::WRITE) return {change};
  std::vector<DiskChange> parts;
  const auto start = static_cast<std::size_t>(change.place);
  const std::size_t end = start + change.bytes.size();
  for (std::size_t first = start; first < end;) {
    const std::size_t last = std::min(end, (first / SECTOR + 1) * SECTOR);
    parts.push_back({change.kind, change.file, static_cast<std::int64_t>(first),
                     change.bytes.substr(first - start, last - first)});
    first = last;
  }
  return parts;
}

}  // namespace

void install_disk_log() {
  static sqlite3_vfs vfs;
  base_vfs = sqlite3_vfs_find(nullptr);
  if (base_vfs == nullptr) throw std::logic_error("SQLite can't be started");
  vfs = *base_vfs;
  vfs.pNext = nullptr;
  vfs.zName = "disk-log";
  vfs.szOsFile = base_size() + static_cast<int>(sizeof(LoggedFile));
  vfs.xOpen = open_file;
  vfs.xDelete = remove_file;
  sqlite3_vfs_register(&vfs, 1);
}

void note_disk_changes(bool is_on) {
  if (is_on) noted.clear();
  is_noting = is_on;
}

void mark_disk_changes() { note("", DiskChange::Kind::MARK, 0); }

const std::vector<DiskChange>& disk_changes() { return noted; }

void Disk::apply(const DiskChange& change) {
  const bool is_lasting = change.kind == DiskChange::Kind::SYNC ||
                          (change.kind == DiskChange::Kind::REMOVE && change.place == 1);
  pending_.push_back(change);
  if (!is_lasting) return;
  std::erase_if(pending_, [&](const DiskChange& pending) {
    if (pending.file != change.file) return false;
    make(pending, lasting_);
    return true;
  });
}

Files Disk::lose_power(const std::function<bool()>& keeps) const {
  Files files = lasting_;
  // Where a removal is lost, the old file is back. What follows was done to a new file.
  std::set<std::string> restored;
  for (const DiskChange& change : pending_) {
    for (const DiskChange& part : split(change)) {
      if (restored.contains(part.file)) continue;
      if (keeps()) {
        make(part, files);
      } else if (part.kind == DiskChange::Kind::REMOVE) {
        restored.insert(part.file);
      }
    }
  }
  std::erase_if(files, [](const auto& file) { return file.first.ends_with("-shm"); });
  return files;
}
