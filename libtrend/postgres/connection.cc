#include "libtrend/postgres/connection.h"

#include <libpq-fe.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

namespace toolkit::trend {

namespace {

constexpr int BINARY = 1;

/// The text of a message, in one line and without the blanks at its end.
std::string join_lines(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

/// What the server says about a statement that failed.
std::string get_message(const PGresult* result) {
  const char* message = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
  if (message == nullptr) return join_lines(PQresultErrorMessage(result));
  std::string text = join_lines(message);
  const char* detail = PQresultErrorField(result, PG_DIAG_MESSAGE_DETAIL);
  if (detail != nullptr) text.append(": ").append(join_lines(detail));
  return text;
}

/// Whether a statement has succeeded.
bool is_good(const Result& result) {
  const ExecStatusType status = PQresultStatus(result.get());
  return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
}

/// Whether a statement has failed without an answer of the server, which has a code.
bool is_failure_of_libpq(const Result& result) {
  return PQresultStatus(result.get()) == PGRES_FATAL_ERROR &&
         PQresultErrorField(result.get(), PG_DIAG_SQLSTATE) == nullptr;
}

/// A time limit in milliseconds, as libpq and the server take it. 0 would be no limit.
std::string get_milliseconds(unsigned seconds) {
  constexpr std::uint64_t LONGEST = std::numeric_limits<std::int32_t>::max();
  return std::to_string(std::clamp<std::uint64_t>(std::uint64_t{seconds} * 1000, 1, LONGEST));
}

}  // namespace

/// Parameters as libpq takes them.
struct Connection::Sent {
  explicit Sent(const Parameters& parameters) : formats(parameters.values().size(), BINARY) {
    for (const std::string& value : parameters.values()) {
      values.push_back(value.data());
      lengths.push_back(static_cast<int>(value.size()));
    }
  }
  [[nodiscard]] int count() const { return static_cast<int>(values.size()); }

  std::vector<const char*> values;
  std::vector<int> lengths;
  std::vector<int> formats;
};

void Connection::Finish::operator()(pg_conn* connection) const { PQfinish(connection); }

Connection::~Connection() {
  try {
    if (is_ahead_) finish_pipeline();
  } catch (const std::bad_alloc&) {
    // Without memory it ends at once.
  }
}

bool Connection::fail() {
  error_ = join_lines(PQerrorMessage(connection_.get()));
  return false;
}

bool Connection::ensure() {
  if (connection_ && !is_lost_ && PQstatus(connection_.get()) == CONNECTION_OK) return true;
  // What comes before the URL are defaults, which the URL may change.
  constexpr unsigned LEAST = 2;  // of libpq
  constexpr unsigned MOST = std::numeric_limits<std::int32_t>::max() / 1000;
  const unsigned seconds = std::clamp(timeout_, LEAST, MOST);
  const std::string timeout = std::to_string(seconds);
  const std::string lost = get_milliseconds(seconds);
  constexpr std::size_t COUNT = 7;
  const std::array<const char*, COUNT> keywords = {"connect_timeout",
                                                   "tcp_user_timeout",
                                                   "keepalives_idle",
                                                   "keepalives_interval",
                                                   "fallback_application_name",
                                                   "dbname",
                                                   nullptr};
  const std::array<const char*, COUNT> values = {
      timeout.c_str(), lost.c_str(), "10", "10", "libtrend", address_.url.c_str(), nullptr};
  names_.clear();
  first_ = nullptr;
  statements_ = 0;
  pipelines_ = 0;
  is_ahead_ = false;
  ahead_ = Result();
  is_lost_ = false;
  connection_.reset(PQconnectdbParams(keywords.data(), values.data(), 1));
  if (PQstatus(connection_.get()) != CONNECTION_OK) return fail();
  PQsetNoticeProcessor(
      connection_.get(), [](void*, const char*) {}, nullptr);
  return set_up();
}

/// Prepares the session. Statements of readers are planned once, for rows in the order of an index;
/// without the values of the parameters the planner would rather sort. Those of writers name series
/// by parameters, and only their values tell which partition, and so which server, is asked.
bool Connection::set_up() {
  std::string sql = "SET client_encoding = 'UTF8'; SET search_path = ";
  sql.append(address_.schema).append(", pg_temp; SET lock_timeout = ");
  sql.append(get_milliseconds(timeout_));
  sql.append("; SET jit = off; SET plan_cache_mode = ");
  sql.append(use_ == Use::READ ? "force_generic_plan" : "force_custom_plan");
  if (use_ == Use::READ) {
    sql.append("; SET enable_sort = off; SET enable_seqscan = off; SET enable_bitmapscan = off");
    sql.append("; SET default_transaction_read_only = on");
  }
  return run(sql);
}

bool Connection::take(Result result) {
  if (is_good(result)) return true;
  if (result.get() == nullptr) return fail();
  if (PQstatus(connection_.get()) == CONNECTION_OK) {
    error_ = get_message(result.get());
    return false;
  }
  // What the server said before it went away is in one of two places.
  const std::string last = join_lines(PQresultErrorMessage(result.get()));
  fail();
  if (error_.find(last) == std::string::npos) error_ = last;
  return false;
}

bool Connection::run(const std::string& sql) {
  finish_pipeline();
  return take(Result(PQexec(connection_.get(), sql.c_str())));
}

void Connection::end_transaction() {
  if (first_ != nullptr) {  // it was not begun
    first_ = nullptr;
    return;
  }
  if (send({.sql = "ROLLBACK"}, Sent(Parameters()))) end_pipeline();
}

/// Makes room for two more prepared statements. Returns false on failure.
bool Connection::limit_prepared() {
  constexpr std::size_t MAX_PREPARED = 64;
  if (names_.size() + 2 <= MAX_PREPARED) return true;
  names_.clear();
  return run("DEALLOCATE ALL");
}

/// Prepares `sql` when it is run for the second time. Sets `statement.name` to null before that.
/// Returns false on failure.
bool Connection::prepare(const std::string& sql, Prepared& statement) {
  const auto [known, is_new] = names_.try_emplace(sql);
  statement.sql = known->first.c_str();
  if (is_new) return true;
  if (known->second.empty()) {
    finish_pipeline();
    const std::string name = std::to_string(++prepared_);
    if (!take(Result(PQprepare(connection_.get(), name.c_str(), sql.c_str(), 0, nullptr)))) {
      return false;
    }
    known->second = name;
  }
  statement.name = known->second.c_str();
  return true;
}

/// Sends a statement as the next one of a pipeline.
bool Connection::send(const Prepared& statement, const Sent& sent) {
  const char* const* values = sent.values.data();
  const int* lengths = sent.lengths.data();
  const int* formats = sent.formats.data();
  PGconn* connection = connection_.get();
  if (PQenterPipelineMode(connection) != 1) return false;
  ++statements_;
  return (statement.name == nullptr ? PQsendQueryParams(connection, statement.sql, sent.count(),
                                                        nullptr, values, lengths, formats, BINARY)
                                    : PQsendQueryPrepared(connection, statement.name, sent.count(),
                                                          values, lengths, formats, BINARY)) == 1;
}

/// Ends a pipeline. If one of its statements fails, the rest of them are left out.
void Connection::end_pipeline() {
  if (PQpipelineSync(connection_.get()) == 1) ++pipelines_;
}

/// Reads the results of all pipelines that were sent, and returns them, one of each statement. If
/// the connection is lost on the way, there is one result, which is empty or says why.
std::vector<Result> Connection::finish_pipeline() {
  PGconn* connection = connection_.get();
  std::vector<Result> results;
  Result last;
  while (pipelines_ > 0) {
    Result result(PQgetResult(connection));
    if (PQresultStatus(result.get()) == PGRES_PIPELINE_SYNC) {
      --pipelines_;
      continue;
    }
    if (result.get() != nullptr) {
      last = std::move(result);
      if (!is_failure_of_libpq(last)) continue;
    } else if (last.get() != nullptr && PQstatus(connection) == CONNECTION_OK) {
      results.push_back(std::exchange(last, Result()));
      continue;
    }
    // Where sending has failed, libpq returns no more results, but the status stays as it was.
    // Where memory was lacking, the end of the pipeline may never come.
    is_lost_ = true;
    // What came before must not pass for the whole.
    results.clear();
    results.push_back(is_good(last) ? Result() : std::exchange(last, Result()));
    pipelines_ = 0;
  }
  PQexitPipelineMode(connection);
  statements_ = 0;
  if (is_ahead_) ahead_ = results.empty() ? Result() : std::move(results.front());
  is_ahead_ = false;
  return results;
}

/// Runs two statements at once and returns the result of the second, or of the first if that fails.
Result Connection::run_both(const Prepared& first, const Prepared& second, const Sent& sent) {
  const std::size_t place = statements_;
  if (send(first, Sent(Parameters())) && send(second, sent)) end_pipeline();
  std::vector<Result> results = finish_pipeline();
  if (results.size() == place + 2)
    return std::move(results[is_good(results[place]) ? place + 1 : place]);
  return results.empty() ? Result() : std::move(results.front());
}

void Connection::send_ahead(const std::string& sql, const Parameters& parameters) {
  finish_pipeline();
  ahead_ = Result();
  Prepared statement;
  if (!limit_prepared() || !prepare(sql, statement) || !send(statement, Sent(parameters))) return;
  end_pipeline();
  is_ahead_ = true;
}

void Connection::take_in() {
  if (is_ahead_) PQconsumeInput(connection_.get());
}

bool Connection::take_ahead(Result& result) {
  if (is_ahead_) finish_pipeline();
  result = std::exchange(ahead_, Result());
  return result.get() == nullptr || is_good(result) || take(std::move(result));
}

bool Connection::run(const std::string& sql, const Parameters& parameters, Result& result) {
  const Sent sent(parameters);
  const char* const first_sql = std::exchange(first_, nullptr);
  if (first_sql == nullptr) {
    finish_pipeline();
    // A statement ahead that has failed has ended the transaction.
    if (ahead_.get() != nullptr && !is_good(ahead_)) return take(std::exchange(ahead_, Result()));
  }
  Prepared first;
  Prepared second;
  if (!limit_prepared() || (first_sql != nullptr && !prepare(first_sql, first)) ||
      !prepare(sql, second))
    return false;
  if (first_sql != nullptr) {
    result = run_both(first, second, sent);
  } else if (second.name == nullptr) {
    result =
        Result(PQexecParams(connection_.get(), second.sql, sent.count(), nullptr,
                            sent.values.data(), sent.lengths.data(), sent.formats.data(), BINARY));
  } else {
    result = Result(PQexecPrepared(connection_.get(), second.name, sent.count(), sent.values.data(),
                                   sent.lengths.data(), sent.formats.data(), BINARY));
  }
  return is_good(result) || take(std::move(result));
}

bool Connection::run(const std::string& sql, const Parameters& parameters, std::int64_t& changed) {
  Result result;
  if (!run(sql, parameters, result)) return false;
  changed = 0;
  const std::string_view text = PQcmdTuples(result.get());
  std::from_chars(text.data(), text.data() + text.size(), changed);
  return true;
}

bool Connection::commit(bool& is_in_doubt) {
  const Result result(PQexec(connection_.get(), "COMMIT"));
  is_in_doubt = false;
  if (PQresultStatus(result.get()) == PGRES_COMMAND_OK) {
    // After an error, the server takes COMMIT for ROLLBACK.
    if (std::string_view(PQcmdStatus(result.get())) == "COMMIT") return true;
    error_ = "the server has undone the transaction";
    return false;
  }
  is_in_doubt = PQstatus(connection_.get()) != CONNECTION_OK || is_failure_of_libpq(result);
  if (is_in_doubt) return fail();
  error_ = get_message(result.get());
  return false;
}

bool Connection::copy_in(const std::string& sql, std::span<const unsigned char> data) {
  constexpr std::size_t PORTION = std::size_t{1} << 16;
  Result start(PQexec(connection_.get(), sql.c_str()));
  if (PQresultStatus(start.get()) != PGRES_COPY_IN) {
    if (take(std::move(start))) error_ = "the server does not take rows";
    return false;
  }
  bool is_sent = true;
  while (is_sent && !data.empty()) {
    const std::span<const unsigned char> portion = data.first(std::min(PORTION, data.size()));
    is_sent = PQputCopyData(connection_.get(), reinterpret_cast<const char*>(portion.data()),
                            static_cast<int>(portion.size())) == 1;
    data = data.subspan(portion.size());
  }
  // Without an end, libpq would wait for data for ever.
  const char* const reason = is_sent ? nullptr : "the rows could not be sent";
  is_sent = PQputCopyEnd(connection_.get(), reason) == 1 && is_sent;
  // The server may have refused the data before all was sent, so what it says comes first.
  bool is_done = is_sent || fail();
  for (;;) {
    Result result(PQgetResult(connection_.get()));
    if (result.get() == nullptr) return is_done;
    if (PQresultStatus(result.get()) == PGRES_COPY_IN) return fail();
    is_done = take(std::move(result)) && is_done;
  }
}

}  // namespace toolkit::trend
