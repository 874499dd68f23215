// The JSON Lines records of `tarnwick-md index`.
#pragma once

#include <string>

#include "tarnwick/engines/references.hpp"
#include "tarnwick/models.hpp"

namespace tarnwick::cli {

// One line, with its final line feed.
std::string symbol_record(const std::string& path, const Symbol& symbol);
std::string reference_record(const std::string& path, std::int64_t file_id,
                             const engines::references::ReferenceInfo& reference);

}  // namespace tarnwick::cli
