#include "tests/support/archive_server.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "libtrend/archive.h"

ArchiveServer::ArchiveServer(const std::vector<std::string>& settings) {
  // The server runs as another user if the tests run as root.
  std::filesystem::permissions(
      folder_.path(), std::filesystem::perms::others_exec | std::filesystem::perms::group_exec,
      std::filesystem::perm_options::add);
  control("start", settings);
}

ArchiveServer::~ArchiveServer() { control("remove"); }

void ArchiveServer::restart_in(const std::vector<std::string>& unshared,
                               const std::string& preparation) const {
  std::vector<std::string> command = {"unshare"};
  command.insert(command.end(), unshared.begin(), unshared.end());
  command.insert(command.end(), {"sh", "-ec", preparation + "\nexec \"$@\"", "sh",
                                 TRENDCSV_ARCHIVE_SERVER, "restart", folder()});
  const ProcessResult result = run_process(command);
  EXPECT_EQ(result.exit_status, 0) << result.err;
}

void ArchiveServer::control(const std::string& action,
                            const std::vector<std::string>& settings) const {
  std::vector<std::string> command = {TRENDCSV_ARCHIVE_SERVER, action, folder()};
  command.insert(command.end(), settings.begin(), settings.end());
  const ProcessResult result = run_process(command);
  EXPECT_EQ(result.exit_status, 0) << action << ": " << result.err;
}

std::string ArchiveServer::url(const std::string& schema, const std::string& user) const {
  return "postgresql:///trends?host=" + folder() + "&user=" + (user.empty() ? "trend" : user) +
         "&schema=" + schema;
}

std::string ArchiveServer::make_archive(unsigned partitions) {
  const std::string address = url("archive_" + std::to_string(++archives_));
  std::string error;
  EXPECT_EQ(toolkit::trend::create_archive(address, {.partitions = partitions}, error), 0) << error;
  return address;
}

ProcessResult ArchiveServer::psql(const std::string& script,
                                  const std::vector<std::string>& arguments) const {
  std::vector<std::string> command = {"psql",   "-h", folder(),          "-U",   "trend", "-d",
                                      "trends", "-v", "ON_ERROR_STOP=1", "-XAtq"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return run_process(command, script);
}

std::string ArchiveServer::sql(const std::string& text) const {
  const ProcessResult result = psql(text);
  EXPECT_EQ(result.exit_status, 0) << result.err;
  return result.out;
}
