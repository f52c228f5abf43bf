// A library that is loaded before all others by LD_PRELOAD. It makes calls of the system fail in a
// program that knows nothing of it.
//
// Environment variables say how: FAIL_CALL is the name of the calls, FAIL_NUMBER the number of the
// one that fails, counted from 1 in `main`. It fails with the error FAIL_ERROR, or, if that is 0,
// reads or writes half of what it was asked for. With FAIL_LASTS, all later ones do the same. Then
// there is a file FAIL_MARK.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

// The functions are those of the C library, with its names.
// NOLINTBEGIN(readability-identifier-naming, bugprone-reserved-identifier)

namespace {

struct {
  const char* call;
  const char* mark;
  long number;
  int error;
  bool lasts;
} fault;
long calls = 0;
bool has_started = false;

template <typename Function>
Function* find_real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int open_mark() {
  static const auto real = find_real<int(const char*, int, ...)>("open");
  return real(fault.mark, O_CREAT | O_WRONLY, 0600);
}

/// Counts a call. Returns whether it is to fail or to do half of its work.
bool is_hit(const char* call) {
  if (!has_started || std::strcmp(call, fault.call) != 0) return false;
  ++calls;
  if (calls < fault.number || (calls > fault.number && !fault.lasts)) return false;
  if (calls == fault.number) {
    has_started = false;
    close(open_mark());
    has_started = true;
  }
  errno = fault.error;
  return true;
}

/// Passes a call on, unless it is to fail.
template <typename Result, typename Function, typename... Arguments>
Result pass(const char* call, Result failure, Function* real, Arguments... arguments) {
  return is_hit(call) ? failure : real(arguments...);
}

/// The same for a call that moves `size` bytes.
template <typename Function, typename Bytes, typename... More>
ssize_t move_bytes(const char* call, Function* real, int file, Bytes* bytes, std::size_t size,
                   More... more) {
  if (!is_hit(call)) return real(file, bytes, size, more...);
  return fault.error != 0 ? -1 : real(file, bytes, (size + 1) / 2, more...);
}

/// Whether a command of `fcntl` is one for a lock.
bool is_lock(int command) {
  for (const int one : {F_SETLK, F_SETLKW, F_SETLK64, F_SETLKW64}) {
    if (command == one) return true;
  }
  return false;
}

int (*real_main)(int, char**, char**) = nullptr;

int start_main(int argc, char** argv, char** environment) {
  fault.call = std::getenv("FAIL_CALL");
  fault.mark = std::getenv("FAIL_MARK");
  fault.number = std::atol(std::getenv("FAIL_NUMBER"));
  fault.error = std::atoi(std::getenv("FAIL_ERROR"));
  fault.lasts = std::getenv("FAIL_LASTS") != nullptr;
  // Found now, as finding them may need memory.
  open_mark();
  unlink(fault.mark);
  has_started = true;
  const int status = real_main(argc, argv, environment);
  // The end of the process does this. What else it does is not the work of the program.
  std::fflush(nullptr);
  has_started = false;
  return status;
}

}  // namespace

#define REAL(name) static const auto real = find_real<decltype(name)>(#name)

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

#ifdef __powerpc__
// The C library of this processor is started in a way of its own.
struct StartupInfo {
  void* small_data;
  int (*main)(int, char**, char**);
  void (*init)();
  void (*fini)();
};

int __libc_start_main(int argc, char** argv, char** environment, void* auxiliary,
                      void (*end_loader)(), StartupInfo* info, char** stack) {
  static const auto real =
      find_real<int(int, char**, char**, void*, void (*)(), StartupInfo*, char**)>(
          "__libc_start_main");
  static StartupInfo changed = *info;
  real_main = std::exchange(changed.main, start_main);
  return real(argc, argv, environment, auxiliary, end_loader, &changed, stack);
}
#else
int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(),
                      void (*fini)(), void (*end_loader)(), void* stack_end) {
  static const auto real = find_real<int(int (*)(int, char**, char**), int, char**, void (*)(),
                                         void (*)(), void (*)(), void*)>("__libc_start_main");
  real_main = main;
  return real(start_main, argc, argv, init, fini, end_loader, stack_end);
}
#endif

void* malloc(std::size_t size) { return is_hit("malloc") ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) {
  return is_hit("malloc") ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
  return is_hit("malloc") ? nullptr : __libc_realloc(memory, size);
}

#define OPEN(name)                                                   \
  int name(const char* path, int flags, ...) {                       \
    REAL(name);                                                      \
    va_list more;                                                    \
    va_start(more, flags);                                           \
    const int mode = (flags & O_CREAT) != 0 ? va_arg(more, int) : 0; \
    va_end(more);                                                    \
    return pass("open", -1, real, path, flags, mode);                \
  }
OPEN(open)
OPEN(open64)

#define FCNTL(name)                                                               \
  int name(int file, int command, ...) {                                          \
    REAL(name);                                                                   \
    va_list more;                                                                 \
    va_start(more, command);                                                      \
    void* argument = va_arg(more, void*);                                         \
    va_end(more);                                                                 \
    if (!is_lock(command)) return real(file, command, argument);                  \
    const bool unlocks = static_cast<struct flock*>(argument)->l_type == F_UNLCK; \
    return pass(unlocks ? "unlock" : "lock", -1, real, file, command, argument);  \
  }
FCNTL(fcntl)
FCNTL(fcntl64)

ssize_t read(int file, void* bytes, std::size_t size) {
  REAL(read);
  return move_bytes("read", real, file, bytes, size);
}
ssize_t pread(int file, void* bytes, std::size_t size, off_t place) {
  REAL(pread);
  return move_bytes("pread", real, file, bytes, size, place);
}
ssize_t pread64(int file, void* bytes, std::size_t size, off64_t place) {
  REAL(pread64);
  return move_bytes("pread", real, file, bytes, size, place);
}
ssize_t write(int file, const void* bytes, std::size_t size) {
  REAL(write);
  return move_bytes("write", real, file, bytes, size);
}
ssize_t pwrite(int file, const void* bytes, std::size_t size, off_t place) {
  REAL(pwrite);
  return move_bytes("pwrite", real, file, bytes, size, place);
}
ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t place) {
  REAL(pwrite64);
  return move_bytes("pwrite", real, file, bytes, size, place);
}
ssize_t recv(int file, void* bytes, std::size_t size, int flags) {
  REAL(recv);
  return move_bytes("recv", real, file, bytes, size, flags);
}
ssize_t send(int file, const void* bytes, std::size_t size, int flags) {
  REAL(send);
  return move_bytes("send", real, file, bytes, size, flags);
}
int connect(int file, const struct sockaddr* address, socklen_t size) {
  REAL(connect);
  return pass("connect", -1, real, file, address, size);
}
int poll(struct pollfd* files, nfds_t count, int timeout) {
  REAL(poll);
  return pass("poll", -1, real, files, count, timeout);
}
int pipe2(int* ends, int flags) noexcept {
  REAL(pipe2);
  return pass("pipe", -1, real, ends, flags);
}
int close(int file) {
  REAL(close);
  return pass("close", -1, real, file);
}
pid_t waitpid(pid_t process, int* status, int options) {
  REAL(waitpid);
  return pass("wait", -1, real, process, status, options);
}
int fchmod(int file, mode_t mode) noexcept {
  REAL(fchmod);
  return pass("chmod", -1, real, file, mode);
}
int fsync(int file) {
  REAL(fsync);
  return pass("sync", -1, real, file);
}
int fdatasync(int file) {
  REAL(fdatasync);
  return pass("sync", -1, real, file);
}
int ftruncate(int file, off_t size) noexcept {
  REAL(ftruncate);
  return pass("truncate", -1, real, file, size);
}
int ftruncate64(int file, off64_t size) noexcept {
  REAL(ftruncate64);
  return pass("truncate", -1, real, file, size);
}
int stat(const char* path, struct stat* status) noexcept {
  REAL(stat);
  return pass("stat", -1, real, path, status);
}
int stat64(const char* path, struct stat64* status) noexcept {
  REAL(stat64);
  return pass("stat", -1, real, path, status);
}
int fstat(int file, struct stat* status) noexcept {
  REAL(fstat);
  return pass("stat", -1, real, file, status);
}
int fstat64(int file, struct stat64* status) noexcept {
  REAL(fstat64);
  return pass("stat", -1, real, file, status);
}
int access(const char* path, int mode) noexcept {
  REAL(access);
  return pass("stat", -1, real, path, mode);
}
int unlink(const char* path) noexcept {
  REAL(unlink);
  return pass("unlink", -1, real, path);
}
int link(const char* from, const char* to) noexcept {
  REAL(link);
  return pass("link", -1, real, from, to);
}
int rename(const char* from, const char* to) noexcept {
  REAL(rename);
  return pass("link", -1, real, from, to);
}
int renameat2(int from_folder, const char* from, int to_folder, const char* to,
              unsigned flags) noexcept {
  REAL(renameat2);
  return pass("link", -1, real, from_folder, from, to_folder, to, flags);
}
void* mmap(void* address, std::size_t size, int access, int flags, int file, off_t start) noexcept {
  REAL(mmap);
  return pass("mmap", MAP_FAILED, real, address, size, access, flags, file, start);
}
void* mmap64(void* address, std::size_t size, int access, int flags, int file,
             off64_t start) noexcept {
  REAL(mmap64);
  return pass("mmap", MAP_FAILED, real, address, size, access, flags, file, start);
}

}  // extern "C"

// NOLINTEND(readability-identifier-naming, bugprone-reserved-identifier)
