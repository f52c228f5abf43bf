// Where the panels of a picture are.
#pragma once

#include <cstddef>

#include "trendtool/plot/picture.h"

/// The sizes of a picture and of what stands in it, in characters or pixels.
struct PlotLayout {
  bool is_text = false;
  int width = 0;
  int height = 0;
  int left = 0;                ///< from the left edge of the picture to the panels
  int right = 0;               ///< likewise on the right
  int top = 0;                 ///< for the title
  int bottom = 0;              ///< for the texts of the time axis
  int name = 0;                ///< the height of one line of names
  int names = 0;               ///< above each panel, for the names of what it shows
  int panel = 0;               ///< the height of a panel without its names
  std::size_t most_ticks = 0;  ///< of the time axis
};

/// Returns the layout of `picture` with `panels` panels. `has_right_axis` says whether a panel has
/// a second axis. The height of the picture grows with the panels unless the picture has a height.
/// A panel keeps a height at which it can be read.
[[nodiscard]] PlotLayout make_layout(const Picture& picture, std::size_t panels,
                                     bool has_right_axis);

/// Returns how many columns of characters or pixels the time axis of `picture` has.
[[nodiscard]] int time_axis_width(const Picture& picture);
