// Faults in what SQLite asks of the system: a layer over its own way to files and memory in which
// chosen calls fail.
#pragma once

#include <functional>
#include <string>

/// The calls that can fail, named like the functions of SQLite's VFS.
enum class Call {
  OPEN,
  DELETE,
  ACCESS,
  READ,
  WRITE,
  TRUNCATE,
  SYNC,
  FILE_SIZE,
  LOCK,
  UNLOCK,
  SHM_MAP,
  SHM_LOCK,
  ALLOCATE,
};

/// What happens at which call.
struct Fault {
  Call call = Call::OPEN;
  int number = 1;                     ///< of the call of this kind, counted from 1
  int code = 0;                       ///< SQLite's code that the call returns; 0 lets it succeed
  bool lasts = false;                 ///< whether all later calls of this kind return the code too
  std::function<void()> action = {};  ///< runs before the call; what it calls is not counted
};

/// Puts the layer under every connection that is opened from now on. To be called once, before
/// anything else uses SQLite.
void install_fault_vfs();

/// Puts a fault in force while this object lives. There is one at a time.
class FaultInForce {
 public:
  explicit FaultInForce(const Fault& fault);
  ~FaultInForce();
  FaultInForce(const FaultInForce&) = delete;
  FaultInForce& operator=(const FaultInForce&) = delete;

  /// Whether there were enough calls for the fault to happen.
  [[nodiscard]] bool has_happened() const;
};
