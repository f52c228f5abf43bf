#include "trendtool/load/loader.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "libtrend/recorder.h"
#include "text/line_reader.h"
#include "trendtool/load/layout.h"
#include "trendtool/load/row_loader.h"

using toolkit::trend::CRecorder;

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Shows the progress of a long load, if standard error is a terminal.
class Progress {
 public:
  void show(std::size_t rows) {
    constexpr std::size_t STEP = 4096;
    if (rows % STEP != 0 || !is_terminal_) return;
    std::fprintf(stderr, "\rtrendload: %zu rows", rows);
    is_shown_ = true;
  }
  ~Progress() {
    if (is_shown_) std::fputc('\n', stderr);
  }

 private:
  bool is_terminal_ = isatty(STDERR_FILENO) == 1;
  bool is_shown_ = false;
};

int fail(const std::string& where, const std::string& wrong) {
  std::fprintf(stderr, "trendload: %s: %s\n", where.c_str(), wrong.c_str());
  return 1;
}

/// Loads the lines after the header. Returns what is wrong with the last line read, or an empty
/// text.
std::string load_rows(RowLoader& loader, LineReader& lines) {
  Progress progress;
  std::string_view line;
  while (lines.look_ahead(line) && loader.look_ahead(line)) {
  }
  while (lines.next(line)) {
    if (std::string wrong = loader.load(line); !wrong.empty()) return wrong;
    progress.show(lines.number() - 1);
  }
  return "";
}

int load(const LoadOptions& options, CRecorder& recorder, const Layout& layout, LineReader& lines) {
  const auto place = [&] { return options.input_path + ":" + std::to_string(lines.number()); };
  if (recorder.begin() != 0) return fail(options.db_path, recorder.error());
  RowLoader loader(options, recorder, layout);
  if (!loader.prepare()) return fail(options.db_path, recorder.error());
  if (std::string wrong = loader.find_slots(); !wrong.empty()) return fail(place(), wrong);
  if (std::string wrong = load_rows(loader, lines); !wrong.empty()) return fail(place(), wrong);
  if (lines.has_failed()) return fail(options.input_path, std::strerror(errno));
  return recorder.commit() == 0 ? 0 : fail(options.db_path, recorder.error());
}

}  // namespace

int run_load(const LoadOptions& options) {
  const bool is_piped = options.input_path == "-";
  const File file(is_piped ? nullptr : std::fopen(options.input_path.c_str(), "r"));
  if (!is_piped && !file) return fail(options.input_path, std::strerror(errno));
  LineReader lines(is_piped ? stdin : file.get());
  std::string_view header;
  if (!lines.next(header)) {
    return lines.has_failed() ? fail(options.input_path, std::strerror(errno))
                              : fail(options.input_path + ":1", "the header is missing");
  }
  Layout layout;
  if (std::string wrong = read_header(header, layout); !wrong.empty()) {
    return fail(options.input_path + ":1", wrong);
  }
  CRecorder recorder;
  if (recorder.open(options.db_path) != 0) return fail(options.db_path, recorder.error());
  return load(options, recorder, layout, lines);
}
