#include "trendtool/plot/script.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

#include "trendtool/plot/gnuplot_text.h"
#include "trendtool/plot/layout.h"
#include "trendtool/plot/shapes.h"
#include "trendtool/plot/ticks.h"

namespace {

/// Colours that people with colour blindness can tell apart.
constexpr const char* COLOURS[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7",
                                   "#E69F00", "#56B4E9", "#000000", "#999933"};

/// One shape of a panel, with the block of data that it draws.
struct DrawnShape {
  Shape shape;
  std::string label;
  std::string colour;
  std::string block;  ///< the name of the block
};

struct Panel {
  std::string title;  ///< empty if each shape has a name
  std::vector<DrawnShape> shapes;
  bool has_sums = false;
  bool has_others = false;
  bool has_negative_sums = false;

  /// Sums are much larger than the other values, so they have an axis of their own.
  [[nodiscard]] bool has_right_axis() const { return has_sums && has_others; }
};

bool is_sum(Shape shape) { return shape == Shape::SUM || shape == Shape::SUM_EXTENT; }

/// The colour of a shape in a panel for one parameter.
const char* colour_of(Shape shape) {
  if (is_sum(shape)) return COLOURS[2];
  return shape == Shape::STEPS ? COLOURS[1] : COLOURS[0];
}

bool has_negative_sum(const PlotSeries& series) {
  constexpr std::size_t SUM = 4;
  return std::any_of(series.columns.begin(), series.columns.end(),
                     [](const PlotColumn& column) { return column.values[SUM].low < 0; });
}

/// Adds the shapes of `series` to `panel`, and their data to `script`.
void add_series(const PlotSeries& series, std::size_t number, bool together, Panel& panel,
                std::string& script) {
  const std::vector<ShapeData> shapes = make_shapes(series);
  for (const ShapeData& data : shapes) {
    DrawnShape drawn;
    drawn.shape = data.shape;
    drawn.block = "$block_" + std::to_string(number) + "_" + std::to_string(panel.shapes.size());
    script += drawn.block + " << END_OF_BLOCK\n" + data.points + "END_OF_BLOCK\n";
    if (!together) {
      drawn.label = data.label;
      drawn.colour = colour_of(data.shape);
    } else {
      drawn.colour = COLOURS[number % std::size(COLOURS)];
      // All shapes of a parameter have one colour. The last one, a line, stands for them.
      if (data.shape == Shape::SUM) drawn.label = series.name + " (sum)";
      if (!is_sum(data.shape) && &data == &shapes.back()) drawn.label = series.name;
    }
    (is_sum(data.shape) ? panel.has_sums : panel.has_others) = true;
    panel.shapes.push_back(std::move(drawn));
  }
  panel.has_negative_sums = panel.has_negative_sums || has_negative_sum(series);
}

std::vector<Panel> make_panels(const Picture& picture, std::string& script) {
  std::vector<Panel> panels(picture.together ? 1 : picture.series.size());
  for (std::size_t i = 0; i < picture.series.size(); ++i) {
    Panel& panel = panels[picture.together ? 0 : i];
    if (!picture.together) panel.title = picture.series[i].name;
    add_series(picture.series[i], i, picture.together, panel, script);
  }
  return panels;
}

std::string terminal_of(const Picture& picture, const PlotLayout& layout) {
  const std::string width = std::to_string(layout.width);
  const std::string height = std::to_string(layout.height);
  switch (picture.format) {
    case PictureFormat::PNG:
      return "pngcairo size " + width + "," + height +
             " noenhanced font 'Sans,11' background '#FFFFFF'";
    case PictureFormat::SVG:
      return "svg size " + width + "," + height +
             " noenhanced font 'sans-serif,14' background '#FFFFFF'";
    case PictureFormat::PDF:
      // A pixel is a hundredth of an inch.
      return "pdfcairo size " + width + "e-2in," + height + "e-2in noenhanced font 'Sans,11'";
    case PictureFormat::TEXT:
      break;
  }
  return "dumb size " + width + "," + height + " noenhanced";
}

/// A point as gnuplot takes it. `x` is from the left edge of the picture, `y` from the bottom.
std::string screen_x(int x, const PlotLayout& layout) {
  // gnuplot counts the middles of characters, but the edges of pixels.
  std::string text = "screen ";
  append_number(text, static_cast<double>(x) / (layout.width - (layout.is_text ? 1 : 0)));
  return text;
}

std::string screen_y(int y, const PlotLayout& layout) {
  std::string text = "screen ";
  append_number(text, static_cast<double>(y) / (layout.height - (layout.is_text ? 1 : 0)));
  return text;
}

std::string screen_point(int x, int y, const PlotLayout& layout) {
  return screen_x(x, layout) + "," + screen_y(y, layout);
}

std::string style_of(const DrawnShape& drawn, bool is_text) {
  const std::string colour = " lc rgb '" + drawn.colour + "'";
  switch (drawn.shape) {
    case Shape::BAND:
      return "using 1:2:3 with filledcurves fs " +
             std::string(is_text ? "solid" : "transparent solid 0.25 noborder") + colour;
    case Shape::EDGE:
      return "using 1:2 with lines lw 1" + colour;
    case Shape::LINE:
    case Shape::STEPS:
      return "using 1:2 with lines lw 1.5" + colour;
    case Shape::SUM_EXTENT:
      return "using 1:3:1:2:3:4 with boxxyerror fs transparent solid 0.25 noborder" + colour;
    case Shape::SUM:
      break;
  }
  return "using 1:3:1:2:3:4 with boxxyerror fs transparent solid 0.6 noborder" + colour;
}

std::string plot_command(const Panel& panel, bool is_text) {
  if (panel.shapes.empty()) return "plot NaN notitle\n";
  std::string command = "plot ";
  for (const DrawnShape& drawn : panel.shapes) {
    if (&drawn != &panel.shapes.front()) command += ", \\\n  ";
    command += drawn.block + " " + style_of(drawn, is_text);
    if (is_sum(drawn.shape) && panel.has_right_axis()) command += " axes x1y2";
    // The legend does not show the character that fills an area.
    const bool is_filled = is_text && drawn.shape == Shape::BAND && !drawn.label.empty();
    const std::string label = drawn.label + (is_filled ? " (X)" : "");
    command += label.empty() ? " notitle" : " title " + gnuplot_string(label);
  }
  return command + "\n";
}

std::string time_ticks(const Picture& picture, const PlotLayout& layout, bool has_texts) {
  std::string ticks = "set xtics nomirror (";
  for (const Tick& tick :
       make_ticks(picture.range.start, picture.range.end, layout.most_ticks, picture.use_utc)) {
    if (!ticks.ends_with('(')) ticks += ", ";
    // Only between these quotes is there a line feed. There is nothing else that is special.
    const std::string text = has_texts ? tick.time_text + "\\n" + tick.date_text : "";
    ticks += "\"" + text + "\" ";
    append_number(ticks, tick.time);
  }
  return ticks + ")\n";
}

std::string value_axes(const Panel& panel) {
  std::string axes = "unset y2tics\nset ytics nomirror\nset yrange [*:*]\n";
  if (panel.shapes.empty()) {
    return axes +
           "unset ytics\nset yrange [0:1]\nset label 4 'no values' at graph 0.5,0.5 center\n";
  }
  const std::string sum_range = panel.has_negative_sums ? "[*:*]\n" : "[0:*]\n";
  if (panel.has_right_axis()) {
    axes += "set y2tics\nset y2range " + sum_range;
  } else if (panel.has_sums) {
    axes += "set yrange " + sum_range;
  }
  return axes;
}

std::string panel_script(const Picture& picture, const PlotLayout& layout, const Panel& panel,
                         std::size_t number, bool is_last) {
  const int right = layout.width - layout.right;
  const int top = layout.height - layout.top - layout.names -
                  static_cast<int>(number) * (layout.names + layout.panel);
  std::string script = "set tmargin at " + screen_y(top, layout) + "\nset bmargin at " +
                       screen_y(top - layout.panel, layout) + "\n";
  script += "set label 1 " + gnuplot_string(panel.title) + " at " +
            screen_point(layout.left, top + (layout.name + 1) / 2, layout) + " left\n";
  const int key = top + (layout.is_text ? 1 : layout.name / 8);
  script +=
      "set key " +
      (picture.together ? "left vertical Left reverse at " + screen_point(layout.left, key, layout)
                        : "right horizontal at " + screen_point(right, key, layout)) +
      " bottom samplen 3\n";
  script += time_ticks(picture, layout, is_last) + value_axes(panel);
  return script + plot_command(panel, layout.is_text);
}

/// The settings of all panels.
std::string common_settings(const Picture& picture, const PlotLayout& layout) {
  const int right = layout.width - layout.right;
  std::string script = "set lmargin at " + screen_x(layout.left, layout) + "\nset rmargin at " +
                       screen_x(right, layout) + "\n";
  script += "set xrange [";
  append_number(script, picture.range.start);
  script += ":";
  append_number(script, picture.range.end);
  script += "] noextend\nset offsets graph 0, graph 0, graph 0.05, graph 0.05\n";
  script += "set autoscale yfix\n";
  if (!layout.is_text) {
    script += "set grid lc rgb '#DDDDDD' lt 1 lw 1\nset border lc rgb '#555555'\nset tics out\n";
  }
  const int line = layout.height - (layout.top + 1) / 2;
  const std::string zone = zone_name(picture.range.start, picture.range.end, picture.use_utc);
  script += "set label 2 " + gnuplot_string(picture.title) + " at " +
            screen_point(layout.left, line, layout) + " left\n";
  return script + "set label 3 " + gnuplot_string("time: " + zone) + " at " +
         screen_point(right, line, layout) + " right\n";
}

}  // namespace

std::string make_script(const Picture& picture) {
  std::string data;
  const std::vector<Panel> panels = make_panels(picture, data);
  const bool has_right_axis =
      std::any_of(panels.begin(), panels.end(), [](const Panel& p) { return p.has_right_axis(); });
  const PlotLayout layout = make_layout(picture, panels.size(), has_right_axis);
  std::string script = "set encoding utf8\nset terminal " + terminal_of(picture, layout) + "\n";
  script += data + "set multiplot\n" + common_settings(picture, layout);
  for (std::size_t i = 0; i < panels.size(); ++i) {
    script += panel_script(picture, layout, panels[i], i, i + 1 == panels.size());
    script += "unset label\n";
  }
  return script + "unset multiplot\n";
}
