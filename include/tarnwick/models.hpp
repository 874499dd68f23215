// The indexer's symbol record, as far as the engines fill it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwick {

// A named, located thing of a file; for the Markdown engine, one section of a document.
struct Symbol {
  std::optional<std::int64_t> id;  // assigned by the index store, never by an engine
  std::int64_t file_id = 0;
  std::string name;
  std::string kind;
  std::string fqn;
  std::int64_t start_line = 0;  // 1-based
  std::int64_t end_line = 0;    // 1-based, inclusive
  std::string signature;
  bool is_export = false;
  std::optional<std::string> docstring;

  bool operator==(const Symbol&) const = default;
};

}  // namespace tarnwick
