// Servers that misbehave.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

/// A server on a Unix socket that talks to its clients, one after the other, as a test tells it.
class FakeServer {
 public:
  /// What to do with a client, given its socket; on return the client is dropped.
  using Script = std::function<void(int client)>;

  /// Starts to serve on `path`, in a thread.
  FakeServer(const std::string& path, Script script);
  /// Waits until the script is done with its client; no further one is served.
  ~FakeServer();
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

 private:
  void serve(const Script& script) const;

  int listener_;
  int stop_reader_ = -1;  ///< a pipe whose end means the end of the service
  int stop_writer_ = -1;
  std::thread thread_;
};

/// Makes a socket at `path` with room for `backlog` clients in its queue, where anybody listens.
[[nodiscard]] int listen_on(const std::string& path, int backlog);

/// Receives something; empty when the client is gone.
std::string receive_some(int client);
/// Sends all of `text`; false when the client is gone.
bool send_text(int client, std::string_view text);
/// Receives a PING and answers it as it should be.
void answer_ping(int client);
/// Sends `text` again and again, until the client is gone.
void flood(int client, std::string_view text);
/// Sends a byte now and then, until the client is gone.
void dribble(int client, char byte);
/// Receives nothing until the client is gone.
void ignore(int client);
