// The answers of a reader of trend data, as texts that can be compared.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "libtrend/records.h"

/// Answers by question. A question that failed is missing.
using Answers = std::map<std::string, std::string>;

/// What a reader can ask of a database: its catalogue, and then for each device and interval what
/// trendcsv and trendtool ask.
class Questions {
 public:
  /// Takes the names of devices, parameters and intervals from the database at `path`. Throws if it
  /// can't be read.
  explicit Questions(const std::string& path);

  /// Asks the database at `path`.
  [[nodiscard]] Answers ask(const std::string& path) const;

 private:
  std::vector<toolkit::trend::CDeviceParams> devices_;
  std::vector<toolkit::trend::CPeriodProperties> periods_;
};
