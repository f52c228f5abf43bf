// Faults in the statements that SQLite runs: one of them can't be prepared, or stops. And what
// happens meanwhile.
#pragma once

#include <functional>
#include <string>

/// When a statement fails: while it is prepared; or when it has started, or has returned a row.
enum class Moment { PREPARE, RUN };

/// Which moments fail.
struct StatementFault {
  Moment moment = Moment::PREPARE;
  int number = 1;      ///< of the moment of this kind, counted from 1
  bool lasts = false;  ///< whether all later moments of this kind fail, too
  bool once = false;   ///< whether a statement's start counts only once, and so do its rows
};

/// Watches every connection that is opened from now on. To be called once, and after
/// `install_fault_vfs`.
void install_statement_faults();

/// Has SQLite not wait until data is on the disk, which takes most of the time of a small
/// transaction.
void skip_syncs();

/// Puts a fault in force while this object lives. There is one at a time.
class StatementFaultInForce {
 public:
  explicit StatementFaultInForce(const StatementFault& fault);
  ~StatementFaultInForce();
  StatementFaultInForce(const StatementFaultInForce&) = delete;
  StatementFaultInForce& operator=(const StatementFaultInForce&) = delete;

  /// Whether there were enough moments for the fault to happen. SQLite does not stop a statement
  /// that has nothing to do but to begin or end a transaction.
  [[nodiscard]] bool has_happened() const;
};

/// Lets something happen whenever a statement starts, while this object lives. There is one at a
/// time.
class StatementHook {
 public:
  /// Before a statement of the text `sql` runs, `action` is called. What it runs itself does not
  /// count.
  StatementHook(std::string sql, std::function<void()> action);
  ~StatementHook();
  StatementHook(const StatementHook&) = delete;
  StatementHook& operator=(const StatementHook&) = delete;
};
