// What a picture shows, before it is put into the words of gnuplot.
#pragma once

#include <string>
#include <vector>

#include "libtrend/records.h"
#include "trendtool/plot/curve.h"

/// The format of a picture. TEXT is for a terminal: its unit of length is a character.
enum class PictureFormat { TEXT, PNG, SVG, PDF };

/// One parameter of a picture.
struct PlotSeries {
  std::string name;                        ///< as it is shown
  toolkit::trend::CParamProperties param;  ///< which statistics it has
  std::vector<PlotColumn> columns;         ///< oldest first
};

struct Picture {
  PictureFormat format = PictureFormat::TEXT;
  int width = 0;          ///< in characters or pixels; 0 for the usual size
  int height = 0;         ///< likewise
  std::string title;      ///< the device
  bool together = false;  ///< all parameters share one panel
  bool use_utc = false;   ///< the time axis is in UTC instead of local time
  TimeRange range;        ///< of the time axis, not empty
  std::vector<PlotSeries> series;
};
