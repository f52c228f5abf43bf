#include "tests/support/fake_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

int listen_on(const std::string& path, int backlog) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, backlog) != 0) {
    throw std::runtime_error("can't listen on " + path);
  }
  return listener;
}

FakeServer::FakeServer(const std::string& path, Script script) : listener_(listen_on(path, 8)) {
  std::array<int, 2> ends;
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("can't make a pipe");
  stop_reader_ = ends[0];
  stop_writer_ = ends[1];
  thread_ = std::thread([this, script = std::move(script)] { serve(script); });
}

FakeServer::~FakeServer() {
  close(stop_writer_);
  thread_.join();
  close(stop_reader_);
  close(listener_);
}

void FakeServer::serve(const Script& script) const {
  while (true) {
    std::array<pollfd, 2> ready = {pollfd{listener_, POLLIN, 0}, pollfd{stop_reader_, 0, 0}};
    if (poll(ready.data(), ready.size(), -1) < 0) continue;
    if (ready[0].revents != 0) {
      const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      script(client);
      close(client);
    } else {
      return;
    }
  }
}

std::string receive_some(int client) {
  std::array<char, 65536> buffer;
  const ssize_t size = recv(client, buffer.data(), buffer.size(), 0);
  return {buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
}

bool send_text(int client, std::string_view text) {
  while (!text.empty()) {
    const ssize_t size = send(client, text.data(), text.size(), MSG_NOSIGNAL);
    if (size < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

void answer_ping(int client) {
  receive_some(client);
  send_text(client, "+PONG\r\n");
}

void flood(int client, std::string_view text) {
  while (send_text(client, text)) {
  }
}

void dribble(int client, char byte) {
  while (send_text(client, {&byte, 1})) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void ignore(int client) {
  pollfd gone = {client, 0, 0};
  poll(&gone, 1, -1);
}
