// Checks the rules of tables, like CHECK (minutes > 0).
#pragma once

#include "libtrend/sqlite/damage_list.h"

struct sqlite3;

namespace toolkit::trend {

/// Looks whether SQLite understands the rules of the tables of the format, and whether all rows
/// keep them. Adds damage to `found`. Only a connection that writes reads the rules of its tables,
/// so that a reader and SQLite's own check notice nothing. `db` must have ordinary tables alone,
/// see `verify`.
void check_rules(sqlite3* db, DamageList& found);

}  // namespace toolkit::trend
