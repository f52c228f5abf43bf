// Servers that misbehave.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

/// A server on a Unix socket that serves its clients, one after the other, by the script of a test.
class FakeServer {
 public:
  /// Serves one client, whose socket is the argument. The connection is closed on return.
  using Script = std::function<void(int client)>;

  /// Starts to serve on `path`, in a thread.
  FakeServer(const std::string& path, Script script);
  /// Waits until the script has served its client. Serves no other client.
  ~FakeServer();
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

 private:
  void serve(const Script& script) const;

  int listener_;
  int stop_reader_ = -1;  ///< a pipe; closing its other end stops the server
  int stop_writer_ = -1;
  std::thread thread_;
};

/// Makes a listening socket at `path` with a queue of `backlog` clients. Returns its descriptor.
[[nodiscard]] int listen_on(const std::string& path, int backlog);

/// Receives some bytes; none if the client has closed the connection.
std::string receive_some(int client);
/// Sends all of `text`. Returns false if the client has closed the connection.
bool send_text(int client, std::string_view text);
/// Receives a PING and answers it correctly.
void answer_ping(int client);
/// Sends `text` again and again, until the client closes the connection.
void flood(int client, std::string_view text);
/// Sends a byte from time to time, until the client closes the connection.
void dribble(int client, char byte);
/// Waits without reading until the client closes the connection.
void ignore(int client);
