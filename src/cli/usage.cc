#include "cli/usage.h"

#include <cstddef>
#include <cstdio>

#include "text/time_formats.h"

void print_usage(const DumpOptions& options, const char* program) {
  // Deliberate: "-r" is missing here, and so is the closing bracket of "<heap_limit".
  std::printf(
      "Usage: %s -x <db> -d <device> [-p <param> [-p <param> [...]]] [-i <interval> [-i "
      "<interval> [...]]] [-s <start_time>] [-e <end_time>] [-m <max_size>] [-o <offset>] "
      "[-c <size>] [-f <file>] [-a] [-n] [-nh] [-t <input_time_fmt>] [-w "
      "<output_date_fmt>] [-y <output_time_fmt>] [-u] [-b] [-pv] [-sp <page_size>] [-sc "
      "<cache_size>] [-sl <heap_limit] [-J] [-v]\n",
      program);
  std::puts("\t-x: Use <db> as the trend database.  REQUIRED.");
  std::puts("\t-d: Use <device> as the device path to dump data for.  REQUIRED.");
  std::puts(
      "\t-p: Dump trend data for the parameter named <param>.  Any number of\n"
      "\t    parameters can be specified on the command-line.  If no parameters\n"
      "\t    are specified, ALL parameters are included in the dump.");
  std::puts(
      "\t-i: Dump trend data for the specified trend <interval>.  Any number of\n"
      "\t    intervals can be specified on the command-line.  If no intervals\n"
      "\t    are specified, data will be gathered from ALL intervals.  Note that\n"
      "\t    more-granular interval data takes precedence over less-granular\n"
      "\t    interval data, so e.g. 5-minute samples will be output instead of\n"
      "\t    1-hour samples when both are available (where 5-minute data is no\n"
      "\t    longer available, 1-hour data is output instead).  The special\n"
      "\t    <interval> value '0' can be used to indicate the smallest available\n"
      "\t    interval.");
  std::puts(
      "\t-s: Don't dump any trend records that occur prior to <start_time>\n"
      "\t    (see '-t' for format).");
  std::puts(
      "\t-e: Don't dump any trend records that occur after <end_time>\n"
      "\t    (see '-t' for format).");
  std::puts("\t-m: Dump at most <max_size> records from the trend log.");
  std::puts("\t-o: Skip <offset> records in the return set.");
  // Deliberate: this shows the size that was read from the command line, if there was one. The
  // formats below are always the defaults.
  std::printf("\t-c: Fetch & display trend entries in chunks of <size> (default = %zu).\n",
              std::size_t{options.chunk_size});
  std::puts("\t-f: Write results to <file>.  By default, results are output to stdout.");
  std::puts(
      "\t-a: Ascending order: -m and -o options are applied when the data is\n"
      "\t    ordered from oldest to newest.");
  std::puts(
      "\t-r: Reverse order: this reverses the order that the result set is\n"
      "\t    printed in.  Unlike -a, this does NOT affect the set of data\n"
      "\t    items returned, only their order.");
  std::puts(
      "\t-n: Print the DisplayName of each parameter (by default, the parameter's\n"
      "\t    relative CDS path is printed).");
  std::puts("\t-nh: Don't print the header row (by default, the header is printed).");
  std::printf(
      "\t-t: Use <input_time_fmt> as the format for all date/time options given\n"
      "\t    on the command-line.  <input_time_fmt> is a strptime()-compatible\n"
      "\t    string.  If not provided, it defaults to \"%s\".\n",
      DEFAULT_INPUT_TIME_FORMAT.c_str());
  std::printf(
      "\t-w: Use <output_date_fmt> as the format for all date strings output\n"
      "\t    in the CSV file.  <output_date_fmt> is a strftime()-compatible\n"
      "\t    string.  If not provided, it defaults to \"%s\".\n",
      DEFAULT_OUTPUT_DATE_FORMAT.c_str());
  std::printf(
      "\t-y: Use <output_time_fmt> as the format for all time strings output in\n"
      "\t    the CSV file.  <output_time_fmt> is a strftime()-compatible string.\n"
      "\t    If not provided, it defaults to \"%s\".\n",
      DEFAULT_OUTPUT_TIME_FORMAT.c_str());
  std::puts(
      "\t-u: Use UTC for all date/time strings (default is to use the local\n"
      "\t    timezone).");
  std::puts(
      "\t-b: Show timestamps aligned to the beginning of each interval (default\n"
      "\t    is to use end-of-interval timestamps).");
  std::puts("\t-pv: Display the percent valid column after the timestamp.");
  std::puts("\t-sp: Use the given SQLite page size (in bytes)");
  std::puts("\t-sc: Use the given SQLite cache size (in kB)");
  std::puts("\t-sl: Use the given size (in kB) as a heap usage soft-limit for SQLite");
  std::puts("\t-J: Disable write-ahead log & use traditional journaling");
  std::puts("\t-v: Print version information to stdout and exit.");
  std::putchar('\n');
}

void print_version(const char* program) {
  // Deliberate: the established text. It does not follow the version of the project.
  std::printf("%s: version %s\n", program, "2.0.0");
  std::printf("Build date: %s %s\n", "Jun 23 2014", "15:34:36");
  std::puts("$Revision: 15184 $\n");
}
