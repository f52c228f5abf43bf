// Whether all ways to read a database agree.
#pragma once

#include <string>

/// Reads the database at `path` through `CLog::open`, through `CLog::open_damaged`, by
/// `CLog::check`, and with the simple reader of the tests, which finds everything that breaks a
/// rule of the format. Ends the program if one of them finds rows or damage that another one does
/// not.
///
/// With `is_any_file`, the file may be damaged where SQLite alone looks. Then the library may
/// refuse what the simple reader takes, since it looks more closely at the head of the file, and
/// each of them may find another part of the damage.
void check_database(const std::string& path, bool is_any_file);
