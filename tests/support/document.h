// The examples in the documents.
#pragma once

#include <string>

/// The text of the document at `document`, a path from the top folder of the sources.
[[nodiscard]] std::string read_document(const std::string& document);

/// The block ```sql FILE of a document. A test fails if there is none.
[[nodiscard]] std::string read_sql(const std::string& document, const std::string& file);
