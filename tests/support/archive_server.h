// Real PostgreSQL servers for tests.
#pragma once

#include <string>
#include <vector>

#include "tests/support/process.h"

/// A PostgreSQL server with an empty database, on a socket in a folder of its own. It runs as an
/// unprivileged user, and ends with the object.
class ArchiveServer {
 public:
  /// Starts a server. `settings` are lines of its configuration file.
  explicit ArchiveServer(const std::vector<std::string>& settings = {});
  ~ArchiveServer();
  ArchiveServer(const ArchiveServer&) = delete;
  ArchiveServer& operator=(const ArchiveServer&) = delete;

  /// The address of the archive in `schema`, which may not be there yet; as `user`, the owner of
  /// the database if empty.
  [[nodiscard]] std::string url(const std::string& schema, const std::string& user = "") const;
  /// The address of an archive that this function makes, empty and in a schema of its own:
  /// `archive_1`, then `archive_2` and so on.
  [[nodiscard]] std::string make_archive(unsigned partitions = 0);

  /// Runs a script of psql as the owner, or as `arguments` say. It stops at the first error.
  [[nodiscard]] ProcessResult psql(const std::string& script,
                                   const std::vector<std::string>& arguments = {}) const;
  /// Runs SQL and returns what it prints: a line for each row, with `|` between the columns. A test
  /// fails if the SQL does.
  std::string sql(const std::string& text) const;

  /// The folder of the socket.
  [[nodiscard]] std::string folder() const { return folder_.file("s"); }

  void stop() { control("stop"); }
  /// Ends the server without an orderly shutdown.
  void kill() { control("kill"); }
  void restart() { control("restart"); }
  /// Restarts the server with parts of the system of its own, as the options `unshared` of
  /// unshare(1) say. `preparation` is a shell script that runs there before. Needs root.
  void restart_in(const std::vector<std::string>& unshared, const std::string& preparation) const;

 private:
  void control(const std::string& action, const std::vector<std::string>& settings = {}) const;

  TemporaryFolder folder_;
  int archives_ = 0;
};

/// One server for all tests of a program, started by the first that needs it.
inline ArchiveServer& server() {
  static ArchiveServer one;
  return one;
}
