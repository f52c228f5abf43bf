// The client of a CDS that is a Redis server on a Unix socket. A leaf is a string under its path.
//
// hiredis formats the requests and parses the replies. This file sends and receives the bytes, so
// that one deadline applies to a whole exchange and a lost connection raises no signal.
#include <hiredis/hiredis.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "libcds/cds.h"

struct pcd_connection {
  explicit pcd_connection(int descriptor) : socket(descriptor) {}
  ~pcd_connection() { ::close(socket); }
  pcd_connection(const pcd_connection&) = delete;
  pcd_connection& operator=(const pcd_connection&) = delete;

  const int socket;
};

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// For connecting and the first reply: a little less than the second that `pcd_init` promises.
constexpr milliseconds CONNECT_LIMIT(900);
/// For a request and its whole reply.
constexpr milliseconds REQUEST_LIMIT(5000);
/// The longest accepted reply in bytes, so that no server can fill the memory.
constexpr std::size_t REPLY_LIMIT = std::size_t{64} << 20;

struct CommandDeleter {
  void operator()(char* command) const { redisFreeCommand(command); }
};
using Command = std::unique_ptr<char, CommandDeleter>;

struct ReaderDeleter {
  void operator()(redisReader* reader) const { redisReaderFree(reader); }
};
using Reader = std::unique_ptr<redisReader, ReaderDeleter>;

struct ReplyDeleter {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, ReplyDeleter>;

/// Returns the time until `deadline`, at least 0.
milliseconds time_left(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? left : milliseconds(0);
}

/// Waits until `connection` is ready for `events` or broken. Returns false if the deadline passes
/// first.
bool wait_for(const pcd_connection& connection, short events, Clock::time_point deadline) {
  while (true) {
    const milliseconds left = time_left(deadline);
    if (left.count() == 0) return false;
    pollfd ready = {connection.socket, events, 0};
    const int count = poll(&ready, 1, static_cast<int>(left.count()));
    if (count > 0) return true;
    if (count < 0 && errno != EINTR) return false;
  }
}

bool is_transient(int error) { return error == EINTR || error == EAGAIN || error == EWOULDBLOCK; }

/// Sends `data`. Returns false if not all of it can be sent by the deadline.
bool send_all(const pcd_connection& connection, std::string_view data, Clock::time_point deadline) {
  while (!data.empty()) {
    if (!wait_for(connection, POLLOUT, deadline)) return false;
    const ssize_t size =
        send(connection.socket, data.data(), data.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size < 0 && !is_transient(errno)) return false;
    if (size > 0) data.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

/// Limits what hiredis may allocate: one array of `elements` entries that are not arrays.
struct ReplyGuard {
  const redisReplyObjectFunctions* functions;  ///< hiredis' own
  std::size_t elements;
};

/// The type of `count` depends on the version of hiredis.
template <typename Count>
void* create_array(const redisReadTask* task, Count count) {
  const auto* guard = static_cast<const ReplyGuard*>(task->privdata);
  if (task->parent != nullptr || static_cast<std::size_t>(count) != guard->elements) return nullptr;
  return guard->functions->createArray(task, count);
}

void* create_string(const redisReadTask* task, char* text, std::size_t size) {
  const auto* guard = static_cast<const ReplyGuard*>(task->privdata);
  return size <= REPLY_LIMIT ? guard->functions->createString(task, text, size) : nullptr;
}

/// Reads a reply. If it is an array, it must have `elements` entries. Returns null if no complete
/// reply comes by the deadline, or if what comes is not a reply.
Reply receive(const pcd_connection& connection, std::size_t elements, Clock::time_point deadline) {
  redisReplyObjectFunctions functions = {};  // the reader uses it to its end
  ReplyGuard guard = {nullptr, elements};
  const Reader reader(redisReaderCreate());
  if (!reader) throw std::bad_alloc();
  guard.functions = reader->fn;
  functions = *reader->fn;
  functions.createArray = create_array;
  functions.createString = create_string;
  reader->fn = &functions;
  reader->privdata = &guard;

  std::array<char, 65536> buffer;
  for (std::size_t total = 0; total <= REPLY_LIMIT;) {
    if (!wait_for(connection, POLLIN, deadline)) return nullptr;
    const ssize_t received = recv(connection.socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (received < 0 && is_transient(errno)) continue;
    if (received <= 0) return nullptr;
    const auto size = static_cast<std::size_t>(received);
    total += size;
    void* reply = nullptr;
    if (redisReaderFeed(reader.get(), buffer.data(), size) != REDIS_OK) return nullptr;
    if (redisReaderGetReply(reader.get(), &reply) != REDIS_OK) return nullptr;
    if (reply != nullptr) return Reply(static_cast<redisReply*>(reply));
  }
  return nullptr;
}

/// Sends the request that consists of `words`, and returns its reply as `receive` does. After a
/// failure the connection cannot be used again: a late reply would be taken for the reply to the
/// next request.
Reply exchange(const pcd_connection& connection, const std::vector<std::string_view>& words,
               std::size_t elements, Clock::time_point deadline) {
  std::vector<const char*> texts;
  std::vector<std::size_t> sizes;
  for (const std::string_view word : words) {
    texts.push_back(word.data());
    sizes.push_back(word.size());
  }
  char* text = nullptr;
  const auto size =
      redisFormatCommandArgv(&text, static_cast<int>(words.size()), texts.data(), sizes.data());
  if (size < 0) throw std::bad_alloc();
  const Command command(text);

  Reply reply;
  if (send_all(connection, {text, static_cast<std::size_t>(size)}, deadline)) {
    reply = receive(connection, elements, deadline);
  }
  if (!reply) shutdown(connection.socket, SHUT_RDWR);
  return reply;
}

/// Connects to the socket at `path`. Waits while the queue of the socket is full.
std::unique_ptr<pcd_connection> connect_to(std::string_view path, Clock::time_point deadline) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return nullptr;
  path.copy(address.sun_path, path.size());

  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return nullptr;
  auto connection = std::make_unique<pcd_connection>(descriptor);
  while (true) {
    const milliseconds left = time_left(deadline);
    if (left.count() == 0) return nullptr;
    timeval limit = {};
    limit.tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(left).count());
    if (setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) return nullptr;
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      return connection;
    }
    if (errno != EINTR) return nullptr;
  }
}

}  // namespace

pcd_connection* pcd_init(const char* server, int /*flag*/) {
  static_assert(sizeof TRENDCSV_CDS_SOCKET <= sizeof(sockaddr_un::sun_path));
  static_assert(CONNECT_LIMIT < std::chrono::seconds(1));
  const Clock::time_point deadline = Clock::now() + CONNECT_LIMIT;
  std::unique_ptr<pcd_connection> connection =
      connect_to(server == nullptr ? TRENDCSV_CDS_SOCKET : server, deadline);
  if (!connection) return nullptr;
  const Reply reply = exchange(*connection, {"PING"}, 0, deadline);
  if (!reply || reply->type != REDIS_REPLY_STATUS ||
      std::string_view(reply->str, reply->len) != "PONG") {
    return nullptr;
  }
  return connection.release();
}

void pcd_close(pcd_connection* handle) { delete handle; }

int toolkit::CCds::get_leaves(const std::vector<std::string>& paths,
                              std::vector<api_status_t>& statuses, std::vector<CElement>& elements,
                              std::vector<element_property_t>& properties) {
  if (handle_ == nullptr) return -1;
  if (paths.empty()) return 0;
  const Clock::time_point deadline = Clock::now() + REQUEST_LIMIT;
  std::vector<std::string_view> words = {"MGET"};
  words.insert(words.end(), paths.begin(), paths.end());
  const Reply reply = exchange(*handle_, words, paths.size(), deadline);
  if (!reply || reply->type != REDIS_REPLY_ARRAY) return -1;

  std::vector<api_status_t> found_statuses;
  std::vector<CElement> found_elements;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const redisReply& leaf = *reply->element[i];
    if (leaf.type == REDIS_REPLY_STRING) {
      found_statuses.push_back(API_STATUS_OK);
      found_elements.emplace_back(ELEMENT_TYPE_TEXT, std::string(leaf.str, leaf.len));
    } else if (leaf.type == REDIS_REPLY_NIL) {
      found_statuses.push_back(API_STATUS_NOT_FOUND);
      found_elements.emplace_back();
    } else {
      return -1;
    }
  }
  properties.resize(paths.size());
  statuses = std::move(found_statuses);
  elements = std::move(found_elements);
  return 0;
}
