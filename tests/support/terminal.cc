#include "tests/support/terminal.h"

#include <pty.h>
#include <unistd.h>
#include <utmp.h>

#include <iterator>
#include <stdexcept>

ProcessResult run_at_terminal(const std::vector<std::string>& command, const std::string& input,
                              unsigned short columns, unsigned short lines) {
  winsize size = {};
  size.ws_col = columns;
  size.ws_row = lines;
  int user_end = -1;
  int program_end = -1;
  if (openpty(&user_end, &program_end, nullptr, nullptr, &size) != 0 ||
      write(user_end, input.data(), input.size()) != std::ssize(input)) {
    throw std::runtime_error("can't make a terminal");
  }
  const pid_t child = start_process(command, {}, [&] {
    close(user_end);
    if (login_tty(program_end) != 0) _exit(127);
  });
  close(program_end);
  ProcessResult result;
  char text[4096];
  for (ssize_t count = 0; (count = read(user_end, text, sizeof text)) > 0;) {
    result.out.append(text, static_cast<std::size_t>(count));
  }
  result.exit_status = wait_for(child);
  close(user_end);
  return result;
}
