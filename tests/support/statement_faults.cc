#include "tests/support/statement_faults.h"

#include <sqlite3.h>

#include <utility>

namespace {

StatementFault in_force;
bool is_in_force = false;
int moments = 0;

std::string hooked_sql;
std::function<void()> hook;  ///< empty while it runs

/// Counts a moment. Returns whether it must fail.
bool must_fail(Moment moment) {
  if (!is_in_force || moment != in_force.moment) return false;
  ++moments;
  return moments == in_force.number || (moments > in_force.number && in_force.lasts);
}

/// SQLite asks for permission when it prepares a statement, also for each column that is read. That
/// is more often than needed, so only questions about whole statements count.
int authorize(void* /*context*/, int action, const char* /*first*/, const char* /*second*/,
              const char* /*database*/, const char* /*trigger*/) {
  const bool is_column = action == SQLITE_READ || action == SQLITE_FUNCTION;
  return !is_column && must_fail(Moment::PREPARE) ? SQLITE_DENY : SQLITE_OK;
}

/// Calls the hook if a statement that starts is the one that it waits for.
void call_hook(const char* sql) {
  if (!hook || sql != hooked_sql) return;
  const std::function<void()> action = std::exchange(hook, nullptr);
  action();
  hook = action;
}

int watch(unsigned event, void* db, void* statement, void* /*detail*/) {
  if (event == SQLITE_TRACE_STMT) call_hook(sqlite3_sql(static_cast<sqlite3_stmt*>(statement)));
  if (must_fail(Moment::RUN)) sqlite3_interrupt(static_cast<sqlite3*>(db));
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
  is_in_force = true;
}

StatementFaultInForce::~StatementFaultInForce() { is_in_force = false; }

bool StatementFaultInForce::has_happened() const { return moments >= in_force.number; }

StatementHook::StatementHook(std::string sql, std::function<void()> action) {
  hooked_sql = std::move(sql);
  hook = std::move(action);
}

StatementHook::~StatementHook() { hook = nullptr; }
