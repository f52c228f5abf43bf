// Real Redis servers for tests.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// A Redis server that listens on a Unix socket alone and keeps nothing on disk.
class RedisServer {
 public:
  /// Starts a server and waits until it answers. `settings` are further arguments of its command
  /// line.
  explicit RedisServer(std::string socket, const std::vector<std::string>& settings = {});
  ~RedisServer() { stop(); }
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  /// Runs redis-cli on the server and gives what it prints. `input` is its standard input.
  std::string cli(const std::vector<std::string>& arguments, const std::string& input = "") const;

  /// Publishes a leaf, with any bytes as its text.
  void publish(const std::string& path, const std::string& text) const;

  /// Ends the server; its socket's file stays.
  void stop();
  /// Lets the server hang; it can still be connected to, as the system does that.
  void suspend() const;
  /// Lets a server that hangs go on.
  void resume() const;

 private:
  void start(const std::vector<std::string>& settings);

  std::string socket_;
  pid_t process_ = -1;
};
