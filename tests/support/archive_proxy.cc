#include "tests/support/archive_proxy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "libtrend/query/bytes.h"
#include "tests/support/fake_server.h"

namespace {

constexpr const char* SOCKET = ".s.PGSQL.5432";
constexpr std::size_t LENGTH = sizeof(std::uint32_t);
constexpr std::uint32_t IS_NULL = 0xFFFFFFFF;  // in the place of a length

std::uint32_t read_length(const std::string& bytes, std::size_t place) {
  return toolkit::trend::load<std::uint32_t>(
      reinterpret_cast<const unsigned char*>(bytes.data() + place));
}

void write_length(std::uint32_t length, std::size_t place, std::string& bytes) {
  toolkit::trend::store(length, reinterpret_cast<unsigned char*>(bytes.data() + place));
}

int connect_to(const std::string& path) {
  sockaddr_un name = {.sun_family = AF_UNIX, .sun_path = {}};
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(server, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0) return server;
  close(server);
  return -1;
}

/// Where a request has what the server can't read if it is changed: its SQL, the name of a prepared
/// statement, or the start of rows. 0 for other requests.
std::size_t find_weak_place(const std::string& message) {
  constexpr std::size_t HEAD = 1 + LENGTH;
  const std::size_t after_text = message.find('\0', HEAD) + 1;
  switch (message[0]) {
    case 'Q':
      return HEAD;
    case 'P':
      return after_text;
    case 'B':
      return message[after_text] == '\0' ? 0 : after_text;
    case 'd':
      return message.compare(HEAD, 6, "PGCOPY") == 0 ? HEAD : 0;
    default:
      return 0;
  }
}

/// Makes the value at `place` of a row NULL.
void remove_value(std::size_t place, std::string& message) {
  message.erase(place + LENGTH, read_length(message, place));
  write_length(IS_NULL, place, message);
  write_length(static_cast<std::uint32_t>(message.size() - 1), 1, message);
}

}  // namespace

ArchiveProxy::ArchiveProxy(const ArchiveServer& server, Fault fault, int number)
    : server_(server), fault_(fault), left_(number), listener_(listen_on(folder_.file(SOCKET), 8)) {
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("can't make a pipe");
  stop_reader_ = ends[0];
  stop_writer_ = ends[1];
  thread_ = std::thread([this] { serve(); });
}

ArchiveProxy::~ArchiveProxy() {
  close(stop_writer_);
  thread_.join();
  for (const Session& session : sessions_) {
    close(session.requests.from);
    close(session.requests.to);
  }
  close(stop_reader_);
  close(listener_);
}

std::string ArchiveProxy::url(const std::string& url) const {
  return "postgresql:///trends?host=" + folder_.path().string() + "&user=trend" +
         url.substr(url.find("&schema="));
}

void ArchiveProxy::serve() {
  for (;;) {
    std::vector<pollfd> ready = {{listener_, POLLIN, 0}, {stop_reader_, 0, 0}};
    for (const Session& session : sessions_) {
      ready.push_back({session.requests.from, POLLIN, 0});
      ready.push_back({session.replies.from, POLLIN, 0});
    }
    if (poll(ready.data(), ready.size(), -1) < 0) continue;
    if (ready[1].revents != 0) return;
    std::size_t next = 2;
    for (auto session = sessions_.begin(); session != sessions_.end(); next += 2) {
      const bool stays = (ready[next].revents == 0 || pass_on(session->requests)) &&
                         (ready[next + 1].revents == 0 || pass_on(session->replies));
      if (stays) {
        ++session;
        continue;
      }
      close(session->requests.from);
      close(session->requests.to);
      session = sessions_.erase(session);
    }
    if (ready[0].revents != 0) accept_program();
  }
}

void ArchiveProxy::accept_program() {
  const int program = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  const bool is_lost = fault_ == Fault::LOSE_SERVER && has_spoiled();
  const int server = is_lost ? -1 : connect_to(server_.folder() + "/" + SOCKET);
  if (server < 0) {
    close(program);
    return;
  }
  sessions_.push_back({.requests = {program, server, false, false, ""},
                       .replies = {server, program, true, true, ""}});
}

/// Passes on the messages that have arrived. Returns false if the connection is to end.
bool ArchiveProxy::pass_on(Way& way) {
  const std::string bytes = receive_some(way.from);
  if (bytes.empty()) return false;
  way.received += bytes;
  std::string passed;
  bool stays = true;
  while (stays) {
    const std::size_t head = (way.has_types ? 1 : 0) + LENGTH;
    if (way.received.size() < head) break;
    const std::size_t size = head - LENGTH + read_length(way.received, head - LENGTH);
    if (way.received.size() < size) break;
    std::string message = way.received.substr(0, size);
    way.received.erase(0, size);
    stays = !way.has_types || spoil(way.is_reply, message);
    if (stays) passed += message;
    way.has_types = true;
  }
  return send_text(way.to, passed) && stays;
}

/// Spoils a message, if it is the one. Returns false if it is lost.
bool ArchiveProxy::spoil(bool is_reply, std::string& message) {
  switch (fault_) {
    case Fault::LOSE_REQUEST:
      return is_reply || !is_next();
    case Fault::LOSE_REPLY:
    case Fault::LOSE_SERVER:
      return !is_reply || !is_next();
    case Fault::REFUSE: {
      const std::size_t place = is_reply ? 0 : find_weak_place(message);
      if (place > 0 && is_next()) message[place] = '!';
      return true;
    }
    case Fault::NO_VALUE: {
      if (!is_reply || message[0] != 'D') return true;
      for (std::size_t place = 1 + LENGTH + sizeof(std::uint16_t); place < message.size();) {
        const std::uint32_t length = read_length(message, place);
        const bool is_null = length == IS_NULL;
        if (!is_null && is_next()) {
          remove_value(place, message);
          return true;
        }
        place += LENGTH + (is_null ? 0 : length);
      }
      return true;
    }
  }
  return true;
}

void with_each_fault(const ArchiveServer& server, ArchiveProxy::Fault fault, int step,
                     const std::function<void(const ArchiveProxy&)>& run) {
  bool has_spoiled = true;
  int number = 1;
  for (; has_spoiled && !testing::Test::HasFailure(); number += step) {
    SCOPED_TRACE("message " + std::to_string(number));
    const ArchiveProxy proxy(server, fault, number);
    run(proxy);
    has_spoiled = proxy.has_spoiled();
  }
  EXPECT_GT(number, 2 * step) << "no message was spoiled";
}
