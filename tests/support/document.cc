#include "tests/support/document.h"

#include <gtest/gtest.h>

#include "tests/support/process.h"

std::string read_document(const std::string& document) {
  return read_file(std::string(TRENDCSV_SOURCE_DIR) + "/" + document);
}

std::string read_sql(const std::string& document, const std::string& file) {
  const std::string text = read_document(document);
  const std::string head = "\n```sql " + file + "\n";
  const std::size_t start = text.find(head);
  const std::size_t end = text.find("\n```\n", start + head.size());
  if (start == std::string::npos || end == std::string::npos) {
    ADD_FAILURE() << document << " has no " << file;
    return "";
  }
  return text.substr(start + head.size(), end + 1 - start - head.size());
}
