// The way to the server of an archive, with one fault.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>

#include "tests/support/archive_server.h"

/// Passes on what programs and the server of an archive send one another. One message that the
/// fault can spoil, the `number`-th from 1 on, is spoiled; all others arrive as they are.
class ArchiveProxy {
 public:
  enum class Fault {
    LOSE_REQUEST,  ///< a message of a program is lost, and its connection with it
    LOSE_REPLY,    ///< a message of the server is lost, and its connection with it
    LOSE_SERVER,   ///< the same, and nobody can connect from then on
    REFUSE,        ///< the server receives a statement, or rows, that it can't read
    NO_VALUE,      ///< one value that the server sends becomes NULL
  };

  ArchiveProxy(const ArchiveServer& server, Fault fault, int number);
  ~ArchiveProxy();
  ArchiveProxy(const ArchiveProxy&) = delete;
  ArchiveProxy& operator=(const ArchiveProxy&) = delete;

  /// The address by this way of the archive whose own address is `url`.
  [[nodiscard]] std::string url(const std::string& url) const;
  /// Whether the message was there to be spoiled.
  [[nodiscard]] bool has_spoiled() const { return left_ <= 0; }

 private:
  /// One direction of a connection.
  struct Way {
    int from = -1;
    int to = -1;
    bool is_reply = false;
    bool has_types = false;  ///< whether messages start with a type; the first request does not
    std::string received;
  };
  struct Session {
    Way requests;
    Way replies;
  };

  void serve();
  void accept_program();
  [[nodiscard]] bool pass_on(Way& way);
  [[nodiscard]] bool spoil(bool is_reply, std::string& message);
  [[nodiscard]] bool is_next() { return --left_ == 0; }

  const ArchiveServer& server_;
  Fault fault_;
  std::atomic<int> left_;  ///< messages until the one to spoil
  TemporaryFolder folder_;
  int listener_;
  int stop_reader_ = -1;  ///< a pipe; closing its other end stops the thread
  int stop_writer_ = -1;
  std::list<Session> sessions_;
  std::thread thread_;
};

/// Calls `run` with a proxy that spoils message 1, then with one that spoils message 1 + `step`,
/// and so on until there is no such message, or a test has failed.
void with_each_fault(const ArchiveServer& server, ArchiveProxy::Fault fault, int step,
                     const std::function<void(const ArchiveProxy&)>& run);
