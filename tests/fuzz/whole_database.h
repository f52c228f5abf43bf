// Whether all ways to read a database agree.
#pragma once

#include <string>

/// Reads the database at `path` through `CLog::open`, through `CLog::open_damaged`, by
/// `CLog::check`, and with the simple reader of the tests, which finds everything that breaks a
/// rule of the format. Ends the program if one of them finds rows or damage that another one does
/// not.
///
/// With `may_be_refused` the library may refuse a file that the simple reader takes: it looks more
/// closely at the head of the file.
void check_database(const std::string& path, bool may_be_refused);
