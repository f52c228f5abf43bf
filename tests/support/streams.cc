#include "tests/support/streams.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

std::string read_stream(std::FILE* stream) {
  std::fflush(stream);
  std::string content;
  std::rewind(stream);
  for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) {
    content.push_back(static_cast<char>(c));
  }
  return content;
}

ProcessResult run_in_child(const std::function<int()>& function) {
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  if (out == nullptr || err == nullptr) throw std::runtime_error("can't make a temporary file");
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("can't start a process");
  if (child == 0) {
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(err), STDERR_FILENO);
    const int status = function();
    std::fflush(nullptr);
    _exit(status);
  }
  ProcessResult result;
  result.exit_status = wait_for(child);
  result.out = read_stream(out);
  result.err = read_stream(err);
  std::fclose(out);
  std::fclose(err);
  return result;
}

ProcessResult capture(const std::function<int()>& function) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  ProcessResult result;
  result.exit_status = function();
  result.err = testing::internal::GetCapturedStderr();
  result.out = testing::internal::GetCapturedStdout();
  return result;
}
