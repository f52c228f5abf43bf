#include "trendtool/plot/command.h"

#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "trendtool/plot/plot.h"

namespace {

/// Reads a size like "1200x800". Returns false if it is none.
bool read_size(std::string_view text, int& width, int& height) {
  const char* end = text.data() + text.size();
  const auto first = std::from_chars(text.data(), end, width);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != 'x') return false;
  const auto second = std::from_chars(first.ptr + 1, end, height);
  return second.ec == std::errc() && second.ptr == end && width > 0 && height > 0;
}

void add_size_option(CLI::App& command, PlotOptions& options) {
  command
      .add_option_function<std::string>(
          "--size",
          [&options](const std::string& text) {
            if (!read_size(text, options.width, options.height)) {
              throw CLI::ValidationError("--size", "'" + text + "' is not a size like 1200x800");
            }
          },
          "The size, in pixels or characters")
      ->type_name("WIDTHxHEIGHT");
}

}  // namespace

void add_plot_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<PlotOptions>();
  CLI::App& command =
      add_command(app, "plot", "Draw a picture, or show one on the terminal",
                  "  trendtool plot -x weather.db\n"
                  "  trendtool plot -x weather.db -d site/weather -f weather.png\n"
                  "  trendtool plot -x weather.db -d site/weather -p pressure -s -7d -f week.svg\n"
                  "  trendtool plot -x weather.db -d site/observed --together -f year.pdf\n",
                  options, run_plot, action);
  add_database_option(command, options->db_path);
  add_device_option(command, options->device);
  add_params_option(command, options->params);
  add_intervals_option(command, options->intervals);
  add_range_options(command, options->start, options->end);
  add_limit_option(command, options->limit);
  add_utc_option(command, options->use_utc);
  add_display_names_option(command, options->use_display_names);
  command.add_flag("--together", options->together, "All parameters in one panel");
  const std::map<std::string, std::optional<PictureFormat>> formats = {
      {"pdf", PictureFormat::PDF},
      {"png", PictureFormat::PNG},
      {"svg", PictureFormat::SVG},
      {"text", PictureFormat::TEXT}};
  add_choice_option(command, "--format", options->format,
                    "The format, if the name of the file does not say it", formats);
  add_size_option(command, *options);
  add_output_option(command, options->output_path);
}
