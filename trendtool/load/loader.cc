#include "trendtool/load/loader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "libtrend/recorder.h"
#include "text/csv.h"
#include "text/line_reader.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/progress.h"
#include "trendtool/load/export_layout.h"
#include "trendtool/load/export_loader.h"
#include "trendtool/load/layout.h"
#include "trendtool/load/record_reader.h"
#include "trendtool/load/row_loader.h"
#include "trendtool/load/row_sink.h"

using toolkit::trend::CRecorder;

namespace {

/// The file that is read, which is closed with the object unless it is standard input.
class InputFile {
 public:
  /// Opens the file at `path`, or takes standard input for "-". `number` is -1 on failure, with the
  /// reason in errno.
  explicit InputFile(const std::string& path)
      : number_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~InputFile() {
    if (number_ > STDIN_FILENO) close(number_);
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

/// Returns the size of an open file in bytes, or 0 if it is not known, as of a pipe.
std::uint64_t size_of(int file) {
  struct stat status = {};
  const bool is_known = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  return is_known ? static_cast<std::uint64_t>(status.st_size) : 0;
}

/// A folder for a database that is used up, and its name.
class ScratchFolder {
 public:
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder() = default;
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  /// Makes the folder. Returns what is wrong, or an empty text.
  std::string make() {
    std::error_code error;
    std::string path = std::filesystem::temp_directory_path(error) / "trendtool-XXXXXX";
    if (error) return "there is no folder for temporary files: " + error.message();
    if (mkdtemp(path.data()) == nullptr) return quote(path) + ": " + std::strerror(errno);
    path_ = path;
    return "";
  }
  [[nodiscard]] std::string file() const { return path_ + "/dry-run.db"; }

 private:
  std::string path_;
};

/// One load. Functions that return an int return the exit status, after a message if it is not 0.
class Load {
 public:
  /// `size` is that of the input, see `size_of`.
  Load(const LoadOptions& options, LineReader& lines, std::uint64_t size)
      : options_(options), lines_(lines), input_size_(size) {}

  int run() {
    std::string_view first;
    if (options_.reads_exports && lines_.look_ahead(first)) {
      if (const char separator = find_separator(first)) return load_export(separator);
    }
    // What is missing in the options is not known before the file is.
    if (lines_.has_failed()) return fail_to_read();
    return load_dump();
  }

 private:
  /// Loads what trendcsv printed.
  int load_dump() {
    if (options_.device.empty()) return fail_at(1, "-d, the device, is missing");
    if (options_.minutes == 0) return fail_at(1, "-i, the interval in minutes, is missing");
    std::string_view header;
    if (!lines_.next(header)) return lines_.has_failed() ? fail_to_read() : fail_at(1, NO_HEADER);
    Layout layout;
    if (std::string wrong = read_header(header, layout); !wrong.empty()) return fail_at(1, wrong);
    if (const int status = start(); status != 0) return status;
    RowLoader loader(options_, recorder_, sink_, layout);
    if (!loader.prepare()) return fail(recorder_.error());
    if (std::string wrong = loader.find_slots(); !wrong.empty()) return fail_here(wrong);
    if (std::string wrong = load_lines(loader); !wrong.empty()) return fail_here(wrong);
    return lines_.has_failed() ? fail_to_read() : finish();
  }

  /// Loads the lines after the header. Returns what is wrong with the last line read, or an empty
  /// text.
  std::string load_lines(RowLoader& loader) {
    Progress progress(options_.program);
    std::string_view line;
    while (lines_.look_ahead(line) && loader.look_ahead(line)) {
    }
    while (lines_.next(line)) {
      if (std::string wrong = loader.load(line); !wrong.empty()) return wrong;
      show(progress);
    }
    return "";
  }

  /// Loads what `trendtool export` wrote.
  int load_export(char separator) {
    RecordReader records(lines_, separator);
    std::vector<std::string_view> fields;
    ExportLayout layout;
    std::string wrong;
    if (!records.next(fields)) wrong = records.wrong();
    if (wrong.empty() && lines_.has_failed()) return fail_to_read();
    if (wrong.empty()) wrong = read_export_header(fields, layout);
    if (wrong.empty()) wrong = find_conflict(layout);
    if (!wrong.empty()) return fail_at(1, wrong);
    if (const int status = start(); status != 0) return status;
    ExportLoader loader(options_, recorder_, sink_, layout);
    if (wrong = loader.prepare(); !wrong.empty()) return fail_at(1, wrong);
    if (wrong = load_records(records, loader); !wrong.empty()) {
      return fail_at(records.number(), wrong);
    }
    return lines_.has_failed() ? fail_to_read() : finish();
  }

  std::string load_records(RecordReader& records, ExportLoader& loader) {
    Progress progress(options_.program);
    std::vector<std::string_view> fields;
    while (records.next(fields)) {
      if (std::string wrong = loader.load(fields); !wrong.empty()) return wrong;
      show(progress);
    }
    if (!records.wrong().empty() || lines_.has_failed()) return records.wrong();
    return loader.finish();
  }

  void show(Progress& progress) const {
    const auto bytes = static_cast<double>(lines_.bytes());
    progress.show(sink_.recorded() + sink_.skipped(),
                  input_size_ == 0 ? -1 : bytes / static_cast<double>(input_size_));
  }

  /// Returns what is wrong with the options for this file, or an empty text.
  [[nodiscard]] std::string find_conflict(const ExportLayout& layout) const {
    if (layout.has_device != options_.device.empty()) {
      return layout.has_device ? "the file names the device of each row; leave out -d"
                               : "-d, the device, is missing";
    }
    if (layout.has_interval != (options_.minutes == 0)) {
      return layout.has_interval ? "the file has the interval of each row; leave out -i"
                                 : "-i, the interval in minutes, is missing";
    }
    return "";
  }

  /// Opens the database and starts the transaction.
  int start() {
    std::string path = options_.db_path;
    // Opening the database would create it.
    std::error_code ignored;
    if (options_.dry_run && !std::filesystem::exists(path, ignored)) {
      if (std::string wrong = scratch_.make(); !wrong.empty()) return fail(wrong);
      path = scratch_.file();
    }
    if (recorder_.open(path) != 0) return fail(recorder_.error());
    if (options_.skip_existing) {
      if (std::string wrong = sink_.skip_existing(path); !wrong.empty()) return fail(wrong);
    }
    return recorder_.begin() == 0 ? 0 : fail(recorder_.error());
  }

  int finish() {
    if (!options_.dry_run) return recorder_.commit() == 0 ? 0 : fail(recorder_.error());
    recorder_.rollback();
    recorder_.close();
    return print_result(std::to_string(sink_.recorded()) + " rows can be recorded, " +
                        std::to_string(sink_.skipped()) + " are recorded already\n");
  }

  int print_failure(const std::string& where, const std::string& wrong) {
    print_message(where + ": " + wrong, options_.program);
    return FAILURE;
  }
  int fail(const std::string& wrong) { return print_failure(options_.db_path, wrong); }
  int fail_at(std::size_t line, const std::string& wrong) {
    return print_failure(options_.input_path + ":" + std::to_string(line), wrong);
  }
  int fail_here(const std::string& wrong) { return fail_at(lines_.number(), wrong); }
  int fail_to_read() {
    if (lines_.error() == EMSGSIZE) {
      return fail_at(lines_.number() + 1,
                     "the line is longer than " + std::to_string(LONGEST_LINE) + " bytes");
    }
    return print_failure(options_.input_path, std::strerror(lines_.error()));
  }

  static constexpr const char* NO_HEADER = "the header is missing";

  const LoadOptions& options_;
  LineReader& lines_;
  std::uint64_t input_size_;
  ScratchFolder scratch_;
  CRecorder recorder_;
  RowSink sink_{recorder_};
};

}  // namespace

int run_load(const LoadOptions& options) {
  const InputFile file(options.input_path);
  if (file.number() < 0) {
    print_message(options.input_path + ": " + std::strerror(errno), options.program);
    return FAILURE;
  }
  LineReader lines(file.number());
  return Load(options, lines, size_of(file.number())).run();
}

int run_trendload(int argc, char** argv) {
  LoadOptions options;
  if (!parse_load_options(argc, argv, options)) return 1;
  if (!options.wants_help) return run_load(options);
  print_load_usage();
  return 0;
}
