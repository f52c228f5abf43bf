// The expected usage text.
#pragma once

#include <string>

/// The text for a program invoked as `program` with a chunk size of `chunk_size` rows.
[[nodiscard]] inline std::string expected_usage(const std::string& program,
                                                const std::string& chunk_size) {
  return "Usage: " + program +
         " -x <db> -d <device> [-p <param> [-p <param> [...]]] [-i <interval> [-i <interval> "
         "[...]]] [-s <start_time>] [-e <end_time>] [-m <max_size>] [-o <offset>] [-c <size>] [-f "
         "<file>] [-a] [-n] [-nh] [-t <input_time_fmt>] [-w <output_date_fmt>] [-y "
         "<output_time_fmt>] [-u] [-b] [-pv] [-sp <page_size>] [-sc <cache_size>] [-sl "
         "<heap_limit] [-J] [-v]\n"
         "\t-x: Use <db> as the trend database.  REQUIRED.\n"
         "\t-d: Use <device> as the device path to dump data for.  REQUIRED.\n"
         "\t-p: Dump trend data for the parameter named <param>.  Any number of\n"
         "\t    parameters can be specified on the command-line.  If no parameters\n"
         "\t    are specified, ALL parameters are included in the dump.\n"
         "\t-i: Dump trend data for the specified trend <interval>.  Any number of\n"
         "\t    intervals can be specified on the command-line.  If no intervals\n"
         "\t    are specified, data will be gathered from ALL intervals.  Note that\n"
         "\t    more-granular interval data takes precedence over less-granular\n"
         "\t    interval data, so e.g. 5-minute samples will be output instead of\n"
         "\t    1-hour samples when both are available (where 5-minute data is no\n"
         "\t    longer available, 1-hour data is output instead).  The special\n"
         "\t    <interval> value '0' can be used to indicate the smallest available\n"
         "\t    interval.\n"
         "\t-s: Don't dump any trend records that occur prior to <start_time>\n"
         "\t    (see '-t' for format).\n"
         "\t-e: Don't dump any trend records that occur after <end_time>\n"
         "\t    (see '-t' for format).\n"
         "\t-m: Dump at most <max_size> records from the trend log.\n"
         "\t-o: Skip <offset> records in the return set.\n"
         "\t-c: Fetch & display trend entries in chunks of <size> (default = " +
         chunk_size +
         ").\n"
         "\t-f: Write results to <file>.  By default, results are output to stdout.\n"
         "\t-a: Ascending order: -m and -o options are applied when the data is\n"
         "\t    ordered from oldest to newest.\n"
         "\t-r: Reverse order: this reverses the order that the result set is\n"
         "\t    printed in.  Unlike -a, this does NOT affect the set of data\n"
         "\t    items returned, only their order.\n"
         "\t-n: Print the DisplayName of each parameter (by default, the parameter's\n"
         "\t    relative CDS path is printed).\n"
         "\t-nh: Don't print the header row (by default, the header is printed).\n"
         "\t-t: Use <input_time_fmt> as the format for all date/time options given\n"
         "\t    on the command-line.  <input_time_fmt> is a strptime()-compatible\n"
         "\t    string.  If not provided, it defaults to \"%F %R\".\n"
         "\t-w: Use <output_date_fmt> as the format for all date strings output\n"
         "\t    in the CSV file.  <output_date_fmt> is a strftime()-compatible\n"
         "\t    string.  If not provided, it defaults to \"%F\".\n"
         "\t-y: Use <output_time_fmt> as the format for all time strings output in\n"
         "\t    the CSV file.  <output_time_fmt> is a strftime()-compatible string.\n"
         "\t    If not provided, it defaults to \"%R\".\n"
         "\t-u: Use UTC for all date/time strings (default is to use the local\n"
         "\t    timezone).\n"
         "\t-b: Show timestamps aligned to the beginning of each interval (default\n"
         "\t    is to use end-of-interval timestamps).\n"
         "\t-pv: Display the percent valid column after the timestamp.\n"
         "\t-sp: Use the given SQLite page size (in bytes)\n"
         "\t-sc: Use the given SQLite cache size (in kB)\n"
         "\t-sl: Use the given size (in kB) as a heap usage soft-limit for SQLite\n"
         "\t-J: Disable write-ahead log & use traditional journaling\n"
         "\t-v: Print version information to stdout and exit.\n"
         "\n";
}

/// The version block of a program invoked as `program`.
[[nodiscard]] inline std::string expected_version(const std::string& program) {
  return program +
         ": version 2.0.0\n"
         "Build date: Jun 23 2014 15:34:36\n"
         "$Revision: 15184 $\n"
         "\n";
}
