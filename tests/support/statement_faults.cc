#include "tests/support/statement_faults.h"

#include <sqlite3.h>

#include <set>
#include <string>
#include <utility>

namespace {

StatementFault in_force;
bool is_in_force = false;
int moments = 0;
std::set<std::string> seen;  ///< moments, where those that look the same count once

std::string hooked_sql;
std::function<void()> hook;  ///< empty while it runs

/// Counts a moment, which looks like others with the same `text`; like none if that is empty.
/// Returns whether it must fail.
bool must_fail(Moment moment, const std::string& text) {
  if (!is_in_force || moment != in_force.moment) return false;
  const bool has_failed = moments >= in_force.number;
  if (in_force.once && !text.empty() && !seen.insert(text).second)
    return has_failed && in_force.lasts;
  ++moments;
  return moments == in_force.number || (has_failed && in_force.lasts);
}

/// SQLite asks for permission when it prepares a statement, also for each column that is read. That
/// is more often than needed, so only questions about whole statements count.
int authorize(void* /*context*/, int action, const char* /*first*/, const char* /*second*/,
              const char* /*database*/, const char* /*trigger*/) {
  const bool is_column = action == SQLITE_READ || action == SQLITE_FUNCTION;
  return !is_column && must_fail(Moment::PREPARE, "") ? SQLITE_DENY : SQLITE_OK;
}

/// Calls the hook if a statement that starts is the one that it waits for.
void call_hook(const std::string& sql) {
  if (!hook || sql != hooked_sql) return;
  const std::function<void()> action = std::exchange(hook, nullptr);
  action();
  hook = action;
}

int watch(unsigned event, void* db, void* statement, void* /*detail*/) {
  // Statements of SQLite's own may have no text.
  const char* text = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
  const std::string sql = text != nullptr ? text : "";
  if (event == SQLITE_TRACE_STMT) call_hook(sql);
  const std::string what = (event == SQLITE_TRACE_ROW ? "a row of " : "start of ") + sql;
  if (must_fail(Moment::RUN, what)) sqlite3_interrupt(static_cast<sqlite3*>(db));
  return 0;
}

int watch_connection(sqlite3* db, const char** /*error*/, const sqlite3_api_routines* /*api*/) {
  sqlite3_set_authorizer(db, authorize, nullptr);
  return sqlite3_trace_v2(db, SQLITE_TRACE_STMT | SQLITE_TRACE_ROW, watch, db);
}

}  // namespace

void install_statement_faults() {
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch_connection));
}

void skip_syncs() {
  const auto no_sync = [](int /*file*/, int /*is_full*/, int /*is_data*/) { return 0; };
  sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
  vfs->xSetSystemCall(vfs, "fsync", reinterpret_cast<sqlite3_syscall_ptr>(+no_sync));
}

StatementFaultInForce::StatementFaultInForce(const StatementFault& fault) {
  in_force = fault;
  moments = 0;
  seen.clear();
  is_in_force = true;
}

StatementFaultInForce::~StatementFaultInForce() { is_in_force = false; }

bool StatementFaultInForce::has_happened() const { return moments >= in_force.number; }

StatementHook::StatementHook(std::string sql, std::function<void()> action) {
  hooked_sql = std::move(sql);
  hook = std::move(action);
}

StatementHook::~StatementHook() { hook = nullptr; }
