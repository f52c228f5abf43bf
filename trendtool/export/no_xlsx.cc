// In the place of xlsx_writer.cc, where its library is missing.
#include "trendtool/export/row_writer.h"

bool can_write_xlsx() { return false; }

std::unique_ptr<RowWriter> make_xlsx_writer(const Export& /*what*/, OutputFile& /*out*/) {
  return nullptr;
}
