// The JSON Lines records of `tarnwick-md index`.
#pragma once

#include <string>
#include <string_view>

#include "tarnwick/markdown.hpp"

namespace tarnwick::cli {

// Appends a JSON string. Bytes that are not UTF-8, which paths from the file system may hold,
// become U+FFFD a maximal ill-formed subpart at a time, as the engine decodes text.
void append_json_string(std::string& out, std::string_view text);

// Each appends one record: a JSON object on one line, with its final line feed.
void append_symbol_record(std::string& out, const std::string& path, const Symbol& symbol);
void append_reference_record(std::string& out, const std::string& path, std::int64_t file_id,
                             const engines::references::ReferenceInfo& reference);
// Appends the records of one file: its symbols, then its references.
void append_records(std::string& out, const std::string& path, std::int64_t file_id,
                    const IndexedDocument& document);

}  // namespace tarnwick::cli
