#include "libtrend/postgres/connection.h"

#include <libpq-fe.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

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

/// A part of what the server says about a statement that failed; empty where it does not say it.
std::string_view get_field(const Result& result, int field) {
  const char* text = PQresultErrorField(result.get(), field);
  return text == nullptr ? "" : text;
}

/// Whether a statement has succeeded.
bool is_good(const Result& result) {
  const ExecStatusType status = PQresultStatus(result.get());
  return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
}

/// Whether a statement has failed without an answer of the server, which has a code. No result at
/// all is such a failure, too.
bool is_failure_of_libpq(const Result& result) {
  return PQresultStatus(result.get()) == PGRES_FATAL_ERROR &&
         get_field(result, PG_DIAG_SQLSTATE).empty();
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

Connection::~Connection() { finish_pipeline(); }

bool Connection::fail() {
  error_ = join_lines(PQerrorMessage(connection_.get()));
  return false;
}

bool Connection::works() const {
  return connection_ && !is_lost_ && PQstatus(connection_.get()) == CONNECTION_OK;
}

bool Connection::ensure() {
  if (works()) return true;
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
  std::string sql = "SET client_encoding = 'UTF8'; SET search_path = \"";
  sql.append(address_.schema).append("\", pg_temp; SET lock_timeout = ");
  sql.append(get_milliseconds(timeout_));
  sql.append("; SET jit = off; SET plan_cache_mode = ");
  sql.append(use_ == Use::READ ? "force_generic_plan" : "force_custom_plan");
  if (use_ == Use::READ) {
    sql.append("; SET enable_sort = off; SET enable_seqscan = off; SET enable_bitmapscan = off");
    sql.append("; SET default_transaction_read_only = on");
  }
  return run(sql);
}

/// Returns whether a statement has succeeded. Takes over why not: what the server says about it, or
/// else libpq.
bool Connection::take(const Result& result) {
  if (is_good(result)) return true;
  const std::string_view message = get_field(result, PG_DIAG_MESSAGE_PRIMARY);
  if (message.empty()) return fail();
  error_ = join_lines(message);
  const std::string_view detail = get_field(result, PG_DIAG_MESSAGE_DETAIL);
  if (!detail.empty()) error_.append(": ").append(join_lines(detail));
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
  send({.sql = "ROLLBACK"}, Sent(Parameters()));
  end_pipeline();
}

/// Makes room for two more prepared statements. If that fails, so does the next statement: the
/// connection is lost, or the transaction has failed before.
void Connection::limit_prepared() {
  constexpr std::size_t MAX_PREPARED = 64;
  if (names_.size() + 2 <= MAX_PREPARED) return;
  names_.clear();
  static_cast<void>(run("DEALLOCATE ALL"));
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
void Connection::send(const Prepared& statement, const Sent& sent) {
  const char* const* values = sent.values.data();
  const int* lengths = sent.lengths.data();
  const int* formats = sent.formats.data();
  PGconn* connection = connection_.get();
  PQenterPipelineMode(connection);  // if that fails, so does the sending
  const int status = statement.name == nullptr
                         ? PQsendQueryParams(connection, statement.sql, sent.count(), nullptr,
                                             values, lengths, formats, BINARY)
                         : PQsendQueryPrepared(connection, statement.name, sent.count(), values,
                                               lengths, formats, BINARY);
  is_lost_ |= status != 1;
}

/// Ends a pipeline. If one of its statements fails, the rest of them are left out.
void Connection::end_pipeline() {
  is_lost_ |= PQpipelineSync(connection_.get()) != 1;
  ++pipelines_;
}

/// Reads the results of all pipelines that were sent. Returns the result of the last statement that
/// was not left out; none, or why, if the connection is lost. Where the first statement is that of
/// `send_ahead`, its result becomes `ahead_`. Needs no memory of its own, as a destructor uses it.
Result Connection::finish_pipeline() {
  Result answer;
  Result last;
  while (pipelines_ > 0 && !is_lost_) {
    Result result(PQgetResult(connection_.get()));
    if (PQresultStatus(result.get()) == PGRES_PIPELINE_SYNC) {
      --pipelines_;
      continue;
    }
    const bool is_end = result.get() == nullptr;  // of the results of one statement
    if (!is_end) last = std::move(result);
    // Where sending has failed, libpq returns no more results, but the status stays as it was.
    // Where memory was lacking, the end of the pipeline may never come.
    is_lost_ = is_failure_of_libpq(last);
    // What came before must not pass for the whole.
    if (is_lost_) answer = Result();
    if (!is_end && !is_lost_) continue;
    Result one = std::exchange(last, Result());
    if (is_ahead_) {
      ahead_ = std::move(one);
      is_ahead_ = false;
    } else if (PQresultStatus(one.get()) != PGRES_PIPELINE_ABORTED) {
      answer = std::move(one);
    }
  }
  PQexitPipelineMode(connection_.get());
  pipelines_ = 0;
  is_ahead_ = false;
  return answer;
}

void Connection::send_ahead(const std::string& sql, const Parameters& parameters) {
  finish_pipeline();
  ahead_ = Result();
  Prepared statement;
  limit_prepared();
  if (!prepare(sql, statement)) return;
  send(statement, Sent(parameters));
  end_pipeline();
  is_ahead_ = true;
}

void Connection::take_in() {
  if (is_ahead_) PQconsumeInput(connection_.get());
}

bool Connection::take_ahead(Result& result) {
  if (is_ahead_) finish_pipeline();
  result = std::exchange(ahead_, Result());
  return result.get() == nullptr || take(result);
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
  limit_prepared();
  if ((first_sql != nullptr && !prepare(first_sql, first)) || !prepare(sql, second)) return false;
  if (first_sql != nullptr) {
    send(first, Sent(Parameters()));
    send(second, sent);
    end_pipeline();
    result = finish_pipeline();
    if (!is_good(ahead_)) ahead_ = Result();  // it has failed in the transaction before this one
  } else if (second.name == nullptr) {
    result =
        Result(PQexecParams(connection_.get(), second.sql, sent.count(), nullptr,
                            sent.values.data(), sent.lengths.data(), sent.formats.data(), BINARY));
  } else {
    result = Result(PQexecPrepared(connection_.get(), second.name, sent.count(), sent.values.data(),
                                   sent.lengths.data(), sent.formats.data(), BINARY));
  }
  return take(result);
}

bool Connection::commit(bool& is_in_doubt) {
  const Result result(PQexec(connection_.get(), "COMMIT"));
  is_in_doubt = false;
  if (take(result)) {
    // After an error, the server takes COMMIT for ROLLBACK.
    if (std::string_view(PQcmdStatus(result.get())) == "COMMIT") return true;
    error_ = "the server has undone the transaction";
    return false;
  }
  // Only an error of the statement itself says for sure that nothing was recorded.
  is_in_doubt = get_field(result, PG_DIAG_SEVERITY_NONLOCALIZED) != "ERROR";
  return false;
}

bool Connection::copy_in(const std::string& sql, std::span<const unsigned char> data) {
  constexpr std::size_t PORTION = std::size_t{1} << 16;
  const Result start(PQexec(connection_.get(), sql.c_str()));
  if (PQresultStatus(start.get()) != PGRES_COPY_IN) {
    if (take(start)) error_ = "the server does not take rows";
    return false;
  }
  bool is_sent = true;
  while (!data.empty()) {
    const std::span<const unsigned char> portion = data.first(std::min(PORTION, data.size()));
    is_sent &= PQputCopyData(connection_.get(), reinterpret_cast<const char*>(portion.data()),
                             static_cast<int>(portion.size())) == 1;
    data = data.subspan(portion.size());
  }
  // Without an end, libpq would wait for data for ever. With a reason, the server takes no rows.
  // Only a lack of memory keeps libpq from sending: it notices a lost connection when it waits.
  PQputCopyEnd(connection_.get(), is_sent ? nullptr : "the rows could not be sent");
  // libpq drops what comes after the answer before it sends the next statement.
  return take(Result(PQgetResult(connection_.get())));
}

}  // namespace toolkit::trend
