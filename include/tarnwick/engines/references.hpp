// The indexer's reference record and the kinds of reference that engines report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwick::engines::references {

enum class RefKind { doc_link, wiki_link };

// An ordinary link or a link reference definition.
inline constexpr RefKind REF_DOC_LINK = RefKind::doc_link;
// A wiki link, [[Page#Anchor|label]].
inline constexpr RefKind REF_WIKI_LINK = RefKind::wiki_link;

// The name of a kind in index records: "doc_link" or "wiki_link".
constexpr std::string_view to_string(RefKind kind) {
  return kind == RefKind::doc_link ? "doc_link" : "wiki_link";
}

// A link from a place in one file to another file (or into the same file, by anchor alone).
struct ReferenceInfo {
  std::string name;                      // the target's path, possibly empty
  std::optional<std::string> qualifier;  // the anchor
  RefKind kind = REF_DOC_LINK;
  std::int64_t line = 0;                  // 1-based
  std::optional<std::string> source_fqn;  // the innermost section holding the line

  bool operator==(const ReferenceInfo&) const = default;
};

}  // namespace tarnwick::engines::references
