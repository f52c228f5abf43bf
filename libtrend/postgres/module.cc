// The entry of the module for archives on PostgreSQL.
#include "libtrend/postgres/reader.h"
#include "libtrend/postgres/schema.h"
#include "libtrend/postgres/writer.h"
#include "libtrend/query/engine_module.h"
#include "libtrend/version.h"

extern "C" __attribute__((visibility("default"))) const toolkit::trend::EngineModule*
trend_engine_module() {
  using namespace toolkit::trend;
  static constexpr EngineModule MODULE = {TRENDCSV_VERSION_STRING, ArchiveReader::open,
                                          ArchiveWriter::open, create_schema};
  return &MODULE;
}
