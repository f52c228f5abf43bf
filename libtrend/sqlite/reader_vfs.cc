#include "libtrend/sqlite/reader_vfs.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>

#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/file_header.h"
#include "libtrend/sqlite/read_ahead.h"

namespace toolkit::trend {

namespace {

enum class Refusal { NONE, LOG, INDEX };

/// What this VFS knows about an open database. It is stored after the file object of the base VFS,
/// which uses that object as usual. Only the object's table of methods is replaced, by `methods`.
struct ReaderFile {
  sqlite3_io_methods methods;
  const sqlite3_io_methods* base;
  const char* name;    ///< SQLite's string, valid while the file is open
  bool is_unchanging;  ///< read as immutable
  bool has_index;      ///< whether the `-shm` is in use
  Refusal refusal;
  ReadAhead ahead;
};

/// Our file control code, which asks for the `ReaderFile` of a connection. SQLite itself uses only
/// the codes up to 100.
constexpr int GET_READER_FILE = 0x54524E44;

sqlite3_vfs* base_vfs = nullptr;

/// The size of a file object of the base VFS, rounded up so that a `ReaderFile` can follow.
int base_size() { return (base_vfs->szOsFile + 7) & ~7; }
static_assert(alignof(ReaderFile) <= 8);

ReaderFile* reader_file(sqlite3_file* file) {
  return reinterpret_cast<ReaderFile*>(reinterpret_cast<char*>(file) + base_size());
}

/// Returns whether `journal` may hold pages that SQLite has to restore. If SQLite keeps a journal
/// file to use it again, it sets the first byte to zero.
bool may_be_hot(const char* journal) {
  const int file = ::open(journal, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) return errno != ENOENT;
  char first = 0;
  const ssize_t size = read(file, &first, 1);
  close(file);
  return size < 0 || (size == 1 && first != 0);
}

/// Returns whether all data of the database is in its own file, and none in a log or journal.
bool is_alone(const char* name) {
  return !may_exist(sqlite3_filename_wal(name)) && !may_be_hot(sqlite3_filename_journal(name));
}

/// Returns whether the owner of the database can use a `-shm` that this user creates. SQLite gives
/// a file that root creates to the owner; another user can't do that.
bool may_make_index(const char* name) {
  struct stat status = {};
  return geteuid() == 0 || (stat(name, &status) == 0 && status.st_uid == geteuid());
}

int device_characteristics(sqlite3_file* file) {
  const ReaderFile* reader = reader_file(file);
  return reader->base->xDeviceCharacteristics(file) |
         (reader->is_unchanging ? SQLITE_IOCAP_IMMUTABLE : 0);
}

/// Reads a part of the file so that the kernel has it when SQLite asks for it.
void read_ahead(sqlite3_file* file, const FilePart& part) {
  constexpr std::int64_t PIECE = std::int64_t{32} * 1024;
  std::array<char, PIECE> piece;
  const sqlite3_io_methods* base = reader_file(file)->base;
  for (std::int64_t done = 0; done < part.size; done += PIECE) {
    const auto size = static_cast<int>(std::min(PIECE, part.size - done));
    // SQLite reads these bytes again and sees then whether that fails.
    if (base->xRead(file, piece.data(), size, part.start + done) != SQLITE_OK) return;
  }
}

int read_file(sqlite3_file* file, void* bytes, int size, sqlite3_int64 start) {
  ReaderFile* reader = reader_file(file);
  if (const FilePart part = reader->ahead.before_read(start, size); part.size > 0) {
    read_ahead(file, part);
  }
  return reader->base->xRead(file, bytes, size, start);
}

int map_index(sqlite3_file* file, int page, int page_size, int extend, void volatile** memory) {
  ReaderFile* reader = reader_file(file);
  if (!reader->has_index && !may_make_index(reader->name)) {
    const std::unique_ptr<char, void (*)(void*)> index(sqlite3_mprintf("%s-shm", reader->name),
                                                       sqlite3_free);
    if (!index) return SQLITE_NOMEM;
    // While we hold our lock, no program can delete an existing `-shm`.
    if (!may_exist(index.get())) {
      reader->refusal = Refusal::INDEX;
      return SQLITE_CANTOPEN;
    }
  }
  reader->has_index = true;
  return reader->base->xShmMap(file, page, page_size, extend, memory);
}

int control(sqlite3_file* file, int operation, void* argument) {
  ReaderFile* reader = reader_file(file);
  if (operation != GET_READER_FILE) return reader->base->xFileControl(file, operation, argument);
  *static_cast<ReaderFile**>(argument) = reader;
  return SQLITE_OK;
}

/// Locks an open database and finds out how to read it.
int look(sqlite3_file* file, ReaderFile& reader) {
  const int status = file->pMethods->xLock(file, SQLITE_LOCK_SHARED);
  if (status != SQLITE_OK) return status;
  if (!FileHeader::read(file).asks_for_write_ahead_log()) {
    return file->pMethods->xUnlock(file, SQLITE_LOCK_NONE);
  }
  reader.is_unchanging = is_alone(reader.name);
  return SQLITE_OK;
}

int open_database_file(const char* name, sqlite3_file* file, int flags, int* given) {
  int status = base_vfs->xOpen(base_vfs, name, file, flags, given);
  if (status != SQLITE_OK) return status;
  const sqlite3_io_methods* base = file->pMethods;
  ReaderFile* reader = new (reader_file(file)) ReaderFile{*base, base, name, false, false, {}, {}};
  reader->methods.iVersion = std::min(base->iVersion, 3);
  reader->methods.xRead = read_file;
  reader->methods.xDeviceCharacteristics = device_characteristics;
  reader->methods.xShmMap = map_index;
  reader->methods.xFileControl = control;
  status = look(file, *reader);
  if (status == SQLITE_OK) {
    file->pMethods = &reader->methods;
  } else {
    base->xClose(file);
    file->pMethods = nullptr;
  }
  return status;
}

int open_log(const char* name, sqlite3_file* file, int flags, int* given) {
  const int status = base_vfs->xOpen(base_vfs, name, file, flags & ~SQLITE_OPEN_CREATE, given);
  if (status != SQLITE_OK) reader_file(sqlite3_database_file_object(name))->refusal = Refusal::LOG;
  return status;
}

int open_file(sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* given) {
  if ((flags & SQLITE_OPEN_MAIN_DB) != 0) return open_database_file(name, file, flags, given);
  if ((flags & SQLITE_OPEN_WAL) != 0) return open_log(name, file, flags, given);
  return base_vfs->xOpen(base_vfs, name, file, flags, given);
}

int refuse_to_delete(sqlite3_vfs* /*vfs*/, const char* /*name*/, int /*sync*/) {
  return SQLITE_IOERR_DELETE;
}

/// Registers this VFS with SQLite. Returns its name, null on failure.
const char* register_vfs() {
  constexpr const char* NAME = "trend-reader";
  static sqlite3_vfs vfs;
  base_vfs = sqlite3_vfs_find(nullptr);
  if (base_vfs == nullptr) return nullptr;
  // The functions that are not replaced also work for this VFS: those of SQLite's own VFSes do not
  // read the VFS object, or only its `pAppData`.
  vfs = *base_vfs;
  vfs.iVersion = std::min(base_vfs->iVersion, 3);
  vfs.pNext = nullptr;
  vfs.zName = NAME;
  vfs.szOsFile = base_size() + static_cast<int>(sizeof(ReaderFile));
  vfs.xOpen = open_file;
  vfs.xDelete = refuse_to_delete;
  return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK ? NAME : nullptr;
}

/// Returns the data of this VFS for a connection; null if the connection does not use it, or is
/// null.
const ReaderFile* find_reader_file(sqlite3* db) {
  ReaderFile* reader = nullptr;
  if (db != nullptr) sqlite3_file_control(db, "main", GET_READER_FILE, &reader);
  return reader;
}

}  // namespace

const char* reader_vfs() {
  static const char* const NAME = register_vfs();
  return NAME;
}

bool is_outdated(sqlite3* db) {
  const ReaderFile* reader = find_reader_file(db);
  if (reader == nullptr) return false;
  return reader->is_unchanging ? !is_alone(reader->name) : reader->refusal == Refusal::LOG;
}

const char* reader_vfs_refusal(sqlite3* db) {
  const ReaderFile* reader = find_reader_file(db);
  if (reader == nullptr || reader->refusal == Refusal::NONE) return nullptr;
  return reader->refusal == Refusal::INDEX
             ? "it was not closed properly, and only its owner can recover it"
             : "its write-ahead log can't be opened";
}

}  // namespace toolkit::trend
