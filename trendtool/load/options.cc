#include "trendtool/load/options.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace {

constexpr const char* USAGE =
    "Usage: trendload -x <db> -d <device> -i <minutes> [-t <input_time_fmt>] [-u] [<file>]\n"
    "Records the CSV in <file>, or on standard input, into a trend database. The CSV is laid out\n"
    "as trendcsv prints it with parameter paths: Date, Time, Percent Valid (optional), and\n"
    "one column per parameter and statistic, named like outdoor/temperature:.ValueIntMin.\n"
    "\t-x: Record into the trend database <db>; it is created if it does not exist.\n"
    "\t-d: Record for the device with this path; it is added if it does not exist.\n"
    "\t-i: The rows summarise intervals of this many minutes; their times are the ends of these.\n"
    "\t-t: The strptime() format of date and time, separated by a space. Default: \"%s\".\n"
    "\t    A time zone in the text is ignored.\n"
    "\t-u: Dates and times are in UTC; the default is the local time zone.\n"
    "\t-h: Print this text.\n"
    "If one row is wrong, no row is recorded.\n";

bool parse_minutes(const char* text, std::uint32_t& minutes) {
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, minutes);
  return error == std::errc() && stop == end && minutes > 0;
}

bool refuse(const char* wrong) {
  std::fprintf(stderr, "trendload: %s; 'trendload -h' explains the options\n", wrong);
  return false;
}

}  // namespace

bool parse_load_options(int argc, char** argv, LoadOptions& options) {
  for (int option = 0; (option = getopt(argc, argv, "x:d:i:t:uh")) != -1;) {
    switch (option) {
      case 'x':
        options.db_path = optarg;
        break;
      case 'd':
        options.device = optarg;
        break;
      case 'i':
        if (!parse_minutes(optarg, options.minutes))
          return refuse("-i must be a number of minutes from 1 to 4294967295");
        break;
      case 't':
        options.time_format = optarg;
        break;
      case 'u':
        options.use_utc = true;
        break;
      case 'h':
        options.wants_help = true;
        return true;
      default:
        return refuse("the command line is wrong");
    }
  }
  if (options.db_path.empty()) return refuse("-x, the database, is missing");
  if (options.device.empty()) return refuse("-d, the device, is missing");
  if (options.minutes == 0) return refuse("-i, the interval in minutes, is missing");
  if (argc - optind > 1) return refuse("only one file is allowed");
  if (optind < argc) options.input_path = argv[optind];
  return true;
}

void print_load_usage() { std::printf(USAGE, DEFAULT_INPUT_TIME_FORMAT.c_str()); }
