#include "tests/support/fault_vfs.h"

#include <sqlite3.h>

#include <new>
#include <stdexcept>

namespace {

sqlite3_vfs* base_vfs = nullptr;
sqlite3_mem_methods base_memory;

Fault in_force;
bool is_in_force = false;
int calls = 0;

/// Counts a call. Returns the code with which it must fail, or SQLITE_OK.
int count(Call call) {
  if (!is_in_force || call != in_force.call) return SQLITE_OK;
  ++calls;
  if (calls < in_force.number || (calls > in_force.number && !in_force.lasts)) return SQLITE_OK;
  if (calls == in_force.number && in_force.action) {
    is_in_force = false;
    in_force.action();
    is_in_force = true;
  }
  return in_force.code;
}

/// The methods of an open file. They follow the file object of the VFS below, which works on that
/// object as ever.
struct Methods {
  sqlite3_io_methods own;
  const sqlite3_io_methods* base;
};

Methods* methods_of(sqlite3_file* file) {
  return reinterpret_cast<Methods*>(reinterpret_cast<char*>(file) +
                                    ((base_vfs->szOsFile + 7) & ~7));
}

/// Counts a call of the method that `member` points to, and passes it on unless it fails.
template <Call CALL, auto MEMBER, typename... Arguments>
int pass_on(sqlite3_file* file, Arguments... arguments) {
  const int code = count(CALL);
  return code != SQLITE_OK ? code : (methods_of(file)->base->*MEMBER)(file, arguments...);
}

/// Counts locks of the index only: SQLite does not look whether they could be released.
int lock_index(sqlite3_file* file, int offset, int count_of_locks, int flags) {
  const int code = (flags & SQLITE_SHM_LOCK) != 0 ? count(Call::SHM_LOCK) : SQLITE_OK;
  return code != SQLITE_OK ? code
                           : methods_of(file)->base->xShmLock(file, offset, count_of_locks, flags);
}

int open_file(sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* given) {
  int code = count(Call::OPEN);
  file->pMethods = nullptr;
  if (code == SQLITE_OK) code = base_vfs->xOpen(base_vfs, name, file, flags, given);
  if (code != SQLITE_OK) return code;
  const sqlite3_io_methods* base = file->pMethods;
  sqlite3_io_methods own = *base;
  own.xRead = pass_on<Call::READ, &sqlite3_io_methods::xRead>;
  own.xWrite = pass_on<Call::WRITE, &sqlite3_io_methods::xWrite>;
  own.xTruncate = pass_on<Call::TRUNCATE, &sqlite3_io_methods::xTruncate>;
  own.xSync = pass_on<Call::SYNC, &sqlite3_io_methods::xSync>;
  own.xFileSize = pass_on<Call::FILE_SIZE, &sqlite3_io_methods::xFileSize>;
  own.xLock = pass_on<Call::LOCK, &sqlite3_io_methods::xLock>;
  own.xUnlock = pass_on<Call::UNLOCK, &sqlite3_io_methods::xUnlock>;
  own.xShmMap = pass_on<Call::SHM_MAP, &sqlite3_io_methods::xShmMap>;
  own.xShmLock = lock_index;
  Methods* methods = new (methods_of(file)) Methods{own, base};
  file->pMethods = &methods->own;
  return SQLITE_OK;
}

int delete_file(sqlite3_vfs* /*vfs*/, const char* name, int sync) {
  const int code = count(Call::DELETE);
  return code != SQLITE_OK ? code : base_vfs->xDelete(base_vfs, name, sync);
}

int access_file(sqlite3_vfs* /*vfs*/, const char* name, int flags, int* result) {
  const int code = count(Call::ACCESS);
  return code != SQLITE_OK ? code : base_vfs->xAccess(base_vfs, name, flags, result);
}

void* allocate(int size) {
  return count(Call::ALLOCATE) != SQLITE_OK ? nullptr : base_memory.xMalloc(size);
}

void* reallocate(void* memory, int size) {
  return count(Call::ALLOCATE) != SQLITE_OK ? nullptr : base_memory.xRealloc(memory, size);
}

}  // namespace

void install_fault_vfs() {
  static sqlite3_vfs vfs;
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &base_memory);
  sqlite3_mem_methods memory = base_memory;
  memory.xMalloc = allocate;
  memory.xRealloc = reallocate;
  // Memory that SQLite keeps for small things would not be asked for again.
  if (sqlite3_config(SQLITE_CONFIG_MALLOC, &memory) != SQLITE_OK ||
      sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) != SQLITE_OK) {
    throw std::logic_error("SQLite was used before its layer of faults was installed");
  }
  base_vfs = sqlite3_vfs_find(nullptr);
  vfs = *base_vfs;
  vfs.pNext = nullptr;
  vfs.zName = "fault";
  vfs.szOsFile = ((base_vfs->szOsFile + 7) & ~7) + static_cast<int>(sizeof(Methods));
  vfs.xOpen = open_file;
  vfs.xDelete = delete_file;
  vfs.xAccess = access_file;
  sqlite3_vfs_register(&vfs, 1);
}

FaultInForce::FaultInForce(const Fault& fault) {
  in_force = fault;
  calls = 0;
  is_in_force = true;
}

FaultInForce::~FaultInForce() { is_in_force = false; }

bool FaultInForce::has_happened() const { return calls >= in_force.number; }
