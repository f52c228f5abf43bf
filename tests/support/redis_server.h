// Real Redis servers for tests.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// A Redis server that listens only on a Unix socket and writes nothing to the disk.
class RedisServer {
 public:
  /// Starts a server and waits until it answers. `settings` are further arguments of its command
  /// line.
  explicit RedisServer(std::string socket, const std::vector<std::string>& settings = {});
  ~RedisServer() { stop(); }
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  /// Runs redis-cli on the server and returns what it prints. `input` is its standard input.
  std::string cli(const std::vector<std::string>& arguments, const std::string& input = "") const;

  /// Publishes a leaf, with any bytes as its text.
  void publish(const std::string& path, const std::string& text) const;

  /// Stops the server. The file of its socket stays.
  void stop();
  /// Makes the server hang. Clients can still connect, because the system accepts connections for
  /// it.
  void suspend() const;
  /// Lets a hanging server continue.
  void resume() const;

 private:
  void start(const std::vector<std::string>& settings);

  std::string socket_;
  pid_t process_ = -1;
};
