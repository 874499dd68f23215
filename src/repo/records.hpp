// The JSON Lines records of `tarnwick-md index`.
#pragma once

#include <string>
#include <string_view>

#include "tarnwick/markdown.hpp"

namespace tarnwick::repo {

// Each appends one record: a JSON object on one line, with its final line feed.
void append_symbol_record(std::string& out, const std::string& path, const Symbol& symbol);
void append_reference_record(std::string& out, const std::string& path, std::int64_t file_id,
                             const engines::references::ReferenceInfo& reference);
// Appends the records of one file: its symbols, then its references.
void append_records(std::string& out, const std::string& path, std::int64_t file_id,
                    const IndexedDocument& document);

}  // namespace tarnwick::repo
