// A storage engine in a module of its own, which is loaded when a path asks for it.
#pragma once

#include <memory>
#include <string>

#include "libtrend/archive.h"
#include "libtrend/log.h"
#include "libtrend/query/engine.h"

namespace toolkit::trend {

/// What a module offers. Its functions return null, or false, on failure, with the reason in
/// `error`.
struct EngineModule {
  /// Of the library that the module was built with. No other library may use what follows.
  const char* version;
  std::unique_ptr<LogReader> (*open_reader)(const std::string& url, const OpenOptions& options,
                                            std::string& error);
  std::unique_ptr<LogWriter> (*open_writer)(const std::string& url, std::string& error);
  bool (*create)(const std::string& url, const ArchiveOptions& options, std::string& error);
};

/// The one function that a module exports, under `ENGINE_MODULE_FUNCTION`. Returns a static object.
using GetEngineModule = const EngineModule* (*)();
inline constexpr const char* ENGINE_MODULE_FUNCTION = "trend_engine_module";

/// Whether `path` names an archive on PostgreSQL instead of a file.
[[nodiscard]] inline bool is_archive_url(const std::string& path) {
  return path.starts_with("postgresql://") || path.starts_with("postgres://");
}

/// Loads the module at `path`. Returns null on failure, with the reason in `error`. The module
/// stays loaded until the process ends.
[[nodiscard]] const EngineModule* load_engine_module(const std::string& path, std::string& error);

/// Loads the module for archives, unless that was done before. The same otherwise.
[[nodiscard]] const EngineModule* load_postgres_module(std::string& error);

}  // namespace toolkit::trend
