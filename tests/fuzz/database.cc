// Whole databases: the bytes of the file.
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/whole_database.h"
#include "tests/support/process.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  enter_work_folder();
  clear_work_folder();
  write_file("trend.db", {reinterpret_cast<const char*>(data), size});
  check_database("trend.db", true);
  return 0;
}
