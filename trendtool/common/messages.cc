#include "trendtool/common/messages.h"

#include <cstdio>
#include <string>

#include "text/utf8.h"

void print_message(std::string_view text, std::string_view program) {
  // One call, so that the messages of several programs do not mix within a line.
  const std::string line = std::string(program) + ": " + show_controls(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

int fail(std::string_view text) {
  print_message(text);
  return FAILURE;
}

int refuse_usage(std::string_view text) {
  print_message(text);
  return WRONG_USAGE;
}
