// Front matter: the title and description of the YAML or TOML block at the top of a document.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "engines/markdown/fields.hpp"
#include "engines/markdown/log.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

// What the front matter says of its document, as plain text.
struct FrontMatter {
  std::optional<std::string> title;
  std::optional<std::string> description;

  bool operator==(const FrontMatter&) const = default;
};

// Reads a front matter block ("minus_metadata" for YAML, otherwise TOML). Never fails: a body
// that cannot be read gives no fields and, where it says so, a debug line naming `prefix`.
FrontMatter front_matter(Node node, std::string_view prefix, const Logger& log);

// A field as plain text: text as it is, numbers in decimal; absent for a missing key, any
// other kind of value, or a value whose plain text is empty.
std::optional<std::string> field(const Fields& fields, std::string_view key);

}  // namespace tarnwick::engines::markdown::detail
