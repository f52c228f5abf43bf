// In the place of xlsx_writer.cc, where its library is missing.
#include "trendtool/export/row_writer.h"

std::string find_xlsx_conflict(const ExportOptions& /*options*/) {
  return "this trendtool was built without libxlsxwriter; use --format csv, or build it with "
         "libxlsxwriter";
}

std::unique_ptr<RowWriter> make_xlsx_writer(const Export& /*what*/, OutputFile& /*out*/,
                                            std::uint32_t /*most_lines*/) {
  return nullptr;
}
