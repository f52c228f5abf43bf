// The client of a CDS that is a Redis server on a Unix socket. A leaf is a string under its path.
//
// One deadline applies to a whole exchange, and a lost connection raises no signal.
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "libcds/cds.h"
#include "libcds/reply.h"

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
/// The longest accepted reply in bytes, so that no server keeps a program busy.
constexpr std::size_t REPLY_LIMIT = std::size_t{64} << 20;

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

static_assert(EAGAIN == EWOULDBLOCK);
bool is_transient(int error) { return error == EINTR || error == EAGAIN; }

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

/// Receives a reply. `read` reads its bytes as they come. Returns false if it is not complete by
/// the deadline, or wrong.
bool receive(const pcd_connection& connection,
             const std::function<ReplyState(std::string_view)>& read, Clock::time_point deadline) {
  std::array<char, 65536> buffer;
  for (std::size_t total = 0; total <= REPLY_LIMIT;) {
    if (!wait_for(connection, POLLIN, deadline)) return false;
    const ssize_t received = recv(connection.socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (received < 0 && is_transient(errno)) continue;
    if (received <= 0) return false;
    const auto size = static_cast<std::size_t>(received);
    total += size;
    const ReplyState state = read({buffer.data(), size});
    if (state != ReplyState::INCOMPLETE) return state == ReplyState::COMPLETE;
  }
  return false;
}

/// Sends the request that consists of `words`, and receives its reply as `receive` does. After a
/// failure the connection cannot be used again: a late reply would be taken for the reply to the
/// next request.
bool exchange(const pcd_connection& connection, const std::vector<std::string_view>& words,
              const std::function<ReplyState(std::string_view)>& read, Clock::time_point deadline) {
  const bool is_done =
      send_all(connection, format_request(words), deadline) && receive(connection, read, deadline);
  if (!is_done) shutdown(connection.socket, SHUT_RDWR);
  return is_done;
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
  std::string_view expected = "+PONG\r\n";
  const auto read = [&expected](std::string_view bytes) {
    if (!expected.starts_with(bytes)) return ReplyState::WRONG;
    expected.remove_prefix(bytes.size());
    return expected.empty() ? ReplyState::COMPLETE : ReplyState::INCOMPLETE;
  };
  if (!exchange(*connection, {"PING"}, read, deadline)) return nullptr;
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
  TextsReader reader(paths.size());
  const auto read = [&reader](std::string_view bytes) { return reader.read(bytes); };
  if (!exchange(*handle_, words, read, deadline)) return -1;

  std::vector<api_status_t> found_statuses;
  std::vector<CElement> found_elements;
  for (std::optional<std::string>& text : reader.texts()) {
    found_statuses.push_back(text ? API_STATUS_OK : API_STATUS_NOT_FOUND);
    found_elements.push_back(text ? CElement(ELEMENT_TYPE_TEXT, std::move(*text)) : CElement());
  }
  properties.resize(paths.size());
  statuses = std::move(found_statuses);
  elements = std::move(found_elements);
  return 0;
}
