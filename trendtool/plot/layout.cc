#include "trendtool/plot/layout.h"

#include <algorithm>

namespace {

/// The sizes that depend on whether the unit is a character or a pixel.
struct Units {
  int width;
  int left;
  int right;
  int right_axis;  ///< what a second axis takes
  int top;
  int bottom;
  int border;  ///< the border of a panel, which takes a line of characters
  int name;    ///< the height of one line of names
  int panel;
  int least_panel;
  int tick;  ///< the width that a tick of the time axis needs
};

constexpr Units CHARACTERS = {80, 10, 3, 8, 1, 2, 1, 1, 9, 6, 13};
constexpr Units PIXELS = {1200, 80, 50, 40, 40, 60, 0, 24, 170, 100, 110};

}  // namespace

PlotLayout make_layout(const Picture& picture, std::size_t panels, bool has_right_axis) {
  const bool is_text = picture.format == PictureFormat::TEXT;
  const Units& units = is_text ? CHARACTERS : PIXELS;
  const auto count = static_cast<int>(panels);
  // One panel alone may be higher.
  constexpr int ONE_PANEL = 2;
  PlotLayout layout;
  layout.width = picture.width > 0 ? picture.width : units.width;
  layout.left = units.left;
  layout.right = units.right + (has_right_axis ? units.right_axis : 0);
  layout.top = units.top;
  layout.bottom = units.bottom;
  layout.name = units.name;
  const auto lines = picture.together ? static_cast<int>(picture.series.size()) : 1;
  layout.names = units.border + units.name * lines;
  layout.panel = count == 1 ? ONE_PANEL * units.panel : units.panel;
  const int around = layout.top + layout.bottom + count * layout.names;
  if (picture.height > 0) {
    layout.panel = std::max((picture.height - around) / count, units.least_panel);
  }
  layout.is_text = is_text;
  layout.height = std::max(picture.height, around + count * layout.panel);
  const int axis_width = layout.width - layout.left - layout.right;
  layout.most_ticks = static_cast<std::size_t>(std::max(axis_width / units.tick, 2));
  return layout;
}

int time_axis_width(const Picture& picture) {
  const PlotLayout layout = make_layout(picture, 1, false);
  return layout.width - layout.left - layout.right;
}
