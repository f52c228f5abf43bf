// The shapes in which a picture shows one parameter, and their points.
#pragma once

#include <string>
#include <vector>

#include "trendtool/plot/picture.h"

enum class Shape {
  BAND,        ///< an area from the lowest to the highest values
  EDGE,        ///< the lower or upper edge of a band without a line in it
  LINE,        ///< the average, or the minimum or maximum if there is nothing else
  STEPS,       ///< the actual values
  SUM_EXTENT,  ///< boxes from the lowest to the highest sum
  SUM,         ///< boxes from 0 to the sum
};

/// A shape with the lines of gnuplot's data that draw it. A row is drawn as long as its interval
/// is, so a line is horizontal within it. An empty line stands where the curve has a gap.
struct ShapeData {
  Shape shape;
  std::string label;   ///< what it shows; empty if that is clear from another shape
  std::string points;  ///< BAND: time, low, high; EDGE, LINE and STEPS: time, value; sums:
                       ///< start, end, low, high
};

/// Returns the shapes that `series` consists of, in the order in which they are drawn. A shape that
/// nothing would be seen of is left out.
[[nodiscard]] std::vector<ShapeData> make_shapes(const PlotSeries& series);
