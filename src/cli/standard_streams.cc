#include "cli/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

void fill_closed_standard_streams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // A file gets the lowest number that is free, which is this one. Where even /dev/null can't be
    // opened, the program runs without.
    if (fcntl(number, F_GETFD) < 0) open("/dev/null", O_RDONLY);
  }
}
