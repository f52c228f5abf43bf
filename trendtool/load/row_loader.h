// Records lines of CSV as rows of one series.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "libtrend/recorder.h"
#include "trendtool/load/layout.h"
#include "trendtool/load/options.h"
#include "trendtool/load/row_clock.h"
#include "trendtool/load/row_sink.h"

/// Records lines in an open transaction of a recorder. Functions that return a string return what
/// is wrong with the input, or an empty text.
class RowLoader {
 public:
  /// All four must outlive the loader.
  RowLoader(const LoadOptions& options, toolkit::trend::CRecorder& recorder, RowSink& sink,
            const Layout& layout);

  /// Adds the device, its parameters and the series if they do not exist yet. Returns false if the
  /// recorder fails; its `error` has the reason.
  [[nodiscard]] bool prepare();

  /// Finds the slots of the columns. To be called after `prepare`.
  [[nodiscard]] std::string find_slots();

  /// Looks at a line that will be loaded later, see `RowClock::look_ahead`. Returns whether the
  /// loader needs to see one more line.
  bool look_ahead(std::string_view line);

  /// Records one line.
  [[nodiscard]] std::string load(std::string_view line);

 private:
  const LoadOptions& options_;
  toolkit::trend::CRecorder& recorder_;
  RowSink& sink_;
  const Layout& layout_;
  RowClock clock_;
  toolkit::trend::CDeviceProperties device_;
  toolkit::trend::CSeries series_;
  std::vector<toolkit::trend::CParamProperties> params_;  ///< as they are in the database
  std::vector<ValuePlace> places_;                        ///< by column
  std::vector<double> values_;                            ///< by slot
  std::vector<std::string_view> fields_;                  ///< of the current line
  std::string time_;                                      ///< date and time of the current line
};
