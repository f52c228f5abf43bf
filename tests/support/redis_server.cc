#include "tests/support/redis_server.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/process.h"

RedisServer::RedisServer(std::string socket, const std::vector<std::string>& settings)
    : socket_(std::move(socket)) {
  start(settings);
  while (run_process({"redis-cli", "-s", socket_, "PING"}).exit_status != 0) {
    if (waitpid(process_, nullptr, WNOHANG) == process_) {
      process_ = -1;
      throw std::runtime_error("redis-server does not start");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

std::string RedisServer::cli(const std::vector<std::string>& arguments,
                             const std::string& input) const {
  std::vector<std::string> command = {"redis-cli", "-s", socket_};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const ProcessResult result = run_process(command, input);
  if (result.exit_status != 0) throw std::runtime_error("redis-cli: " + result.err);
  return result.out;
}

void RedisServer::publish(const std::string& path, const std::string& text) const {
  // With "-x" the last argument is read from standard input, and may contain a zero byte.
  if (cli({"-x", "SET", path}, text) != "OK\n") throw std::runtime_error("can't publish " + path);
}

void RedisServer::start(const std::vector<std::string>& settings) {
  const std::string folder = std::filesystem::path(socket_).parent_path();
  std::vector<std::string> command = {"redis-server", "--port", "0",   "--unixsocket",
                                      socket_,        "--save", "",    "--appendonly",
                                      "no",           "--dir",  folder};
  command.insert(command.end(), settings.begin(), settings.end());
  process_ = start_process(command, {}, [] {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // if the test is killed, its server ends too
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
  });
}

void RedisServer::stop() {
  if (process_ < 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

void RedisServer::suspend() const { kill(process_, SIGSTOP); }

void RedisServer::resume() const { kill(process_, SIGCONT); }
