// A connection to a PostgreSQL server.
#pragma once

#include <map>
#include <memory>
#include <span>
#include <string>

#include "libtrend/postgres/url.h"
#include "libtrend/postgres/values.h"

// Of libpq-fe.h, which only .cc files include.
struct pg_conn;

namespace toolkit::trend {

/// A connection. Functions that return false have failed, and `error` has the reason.
class Connection {
 public:
  enum class Use { READ, WRITE };

  /// A connection to `address`, which is made by `ensure`. `timeout` limits, in seconds, how long
  /// connecting to each host takes (2 at least), how long a statement waits for a lock, and how
  /// long the network may be away. A statement itself may take as long as it needs.
  Connection(ArchiveAddress address, Use use, unsigned timeout)
      : address_(std::move(address)), use_(use), timeout_(timeout) {}
  /// Waits for what was sent without waiting for it; the server would log a lost connection.
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Connects, unless there is a connection that works.
  [[nodiscard]] bool ensure();
  /// Whether there is a connection that works, as far as its last use has shown.
  [[nodiscard]] bool works() const;

  /// Runs `sql`, which may be several statements without parameters. Their rows are dropped.
  [[nodiscard]] bool run(const std::string& sql);
  /// Runs one statement.
  [[nodiscard]] bool run(const std::string& sql, const Parameters& parameters, Result& result);
  /// Runs `sql` just before the next statement that has its own `Parameters`, and sends both at
  /// once. If `sql` fails, so does that statement.
  void run_with_next(const char* sql) { first_ = sql; }
  /// Undoes the transaction, without waiting for the server to say so.
  void end_transaction();
  /// Sends a statement of the transaction, without waiting for its rows. They take the place of
  /// those of an earlier such statement.
  void send_ahead(const std::string& sql, const Parameters& parameters);
  /// Takes in what has arrived of those rows, so that the server need not wait with the rest.
  void take_in();
  /// Sets `result` to those rows, after waiting for them. It is empty where nothing was sent, or
  /// where the rows were taken before.
  [[nodiscard]] bool take_ahead(Result& result);
  /// Runs COMMIT. Returns false also where the server has rolled back instead. `is_in_doubt` is set
  /// to whether the connection was lost on the way, so that nobody knows.
  [[nodiscard]] bool commit(bool& is_in_doubt);
  /// Sends `data` to `sql`, which is COPY ... FROM STDIN.
  [[nodiscard]] bool copy_in(const std::string& sql, std::span<const unsigned char> data);

  [[nodiscard]] const ArchiveAddress& address() const { return address_; }
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  struct Finish {
    void operator()(pg_conn* connection) const;
  };

  struct Sent;
  struct Prepared {
    const char* sql = nullptr;
    const char* name = nullptr;
  };

  bool set_up();
  void limit_prepared();
  bool prepare(const std::string& sql, Prepared& statement);
  void send(const Prepared& statement, const Sent& sent);
  void end_pipeline();
  Result finish_pipeline();
  bool take(const Result& result);
  bool fail();

  ArchiveAddress address_;
  Use use_;
  unsigned timeout_;
  std::unique_ptr<pg_conn, Finish> connection_;
  /// The names of prepared statements by their SQL; empty for those that have run once.
  std::map<std::string, std::string> names_;
  unsigned prepared_ = 0;        ///< how many there were
  const char* first_ = nullptr;  ///< what `run_with_next` was told
  unsigned pipelines_ = 0;       ///< how many were sent and have not ended yet
  bool is_ahead_ = false;        ///< whether the first statement is that of `send_ahead`
  Result ahead_;                 ///< its rows, or its failure, once they have been read
  bool is_lost_ = false;         ///< whether a pipeline has shown that the connection is lost
  std::string error_;
};

}  // namespace toolkit::trend
