#include "trendtool/run.h"

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include "text/csv.h"
#include "trendtool/backup/command.h"
#include "trendtool/check/command.h"
#include "trendtool/common/command.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/copy/command.h"
#include "trendtool/export/command.h"
#include "trendtool/init/command.h"
#include "trendtool/list/command.h"
#include "trendtool/load/command.h"
#include "trendtool/load/loader.h"
#include "trendtool/plot/command.h"
#include "trendtool/purge/command.h"
#include "trendtool/remove/command.h"

namespace {

/// Says what is wrong with the command line, and where to look. Returns the exit status.
int refuse(const CLI::App& app, const CLI::ParseError& error) {
  const auto chosen = app.get_subcommands();
  if (chosen.empty() && !app.remaining().empty()) {
    return refuse_usage(quote(app.remaining().front()) +
                        " is not a subcommand; see 'trendtool --help'");
  }
  const std::string name = chosen.empty() ? "" : " " + chosen.front()->get_name();
  return refuse_usage(std::string(error.what()) + "; see 'trendtool" + name + " --help'");
}

int run_subcommand(int argc, char** argv) {
  CLI::App app("Shows, exports, checks, copies and removes what is in a trend database.",
               "trendtool");
  app.set_version_flag("--version", "trendtool " TRENDTOOL_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);
  Action action;
  add_list_command(app, action);
  add_export_command(app, action);
  add_plot_command(app, action);
  add_check_command(app, action);
  add_backup_command(app, action);
  add_copy_command(app, action);
  add_remove_command(app, action);
  add_purge_command(app, action);
  add_init_command(app, action);
  add_load_command(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return print_result(app.help());
  } catch (const CLI::CallForVersion& version) {
    return print_result(std::string(version.what()) + "\n");
  } catch (const CLI::ParseError& error) {
    return refuse(app, error);
  }
  return action();
}

}  // namespace

bool is_trendload(int argc, char** argv) {
  if (argc == 0) return false;
  const std::string_view path(argv[0]);
  return path.substr(path.rfind('/') + 1) == "trendload";
}

int run_trendtool(int argc, char** argv) {
  return is_trendload(argc, argv) ? run_trendload(argc, argv) : run_subcommand(argc, argv);
}
