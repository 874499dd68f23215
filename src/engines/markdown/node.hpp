// Reading the block tree: node operations, the flat block list, and node text.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

// Node types the walks enter instead of yielding.
// A few node types, compared in order: a constant that needs no initialisation at run time.
template <std::size_t N>
struct NodeTypes {
  std::array<std::string_view, N> names;

  constexpr bool contains(std::string_view type) const {
    return std::find(names.begin(), names.end(), type) != names.end();
  }
  constexpr auto begin() const { return names.begin(); }
  constexpr auto end() const { return names.end(); }
};

template <typename... Names>
constexpr NodeTypes<sizeof...(Names)> node_types(Names... names) {
  return {{std::string_view(names)...}};
}

inline constexpr auto CONTAINERS = node_types("document", "ERROR", "section");

inline constexpr std::string_view ATX_HEADING = "atx_heading";
inline constexpr std::string_view SETEXT_HEADING = "setext_heading";
inline constexpr std::string_view YAML_FRONT_MATTER = "minus_metadata";
inline constexpr std::string_view TOML_FRONT_MATTER = "plus_metadata";

std::string_view type(Node node);
std::vector<Node> children(Node node);
std::uint32_t start_row(Node node);
// The first child of the given type.
std::optional<Node> first_child(Node node, std::string_view child_type);

// The node's source bytes, as they stand.
std::string_view bytes(Node node);

// The node's text: its source bytes decoded as UTF-8, ill-formed subparts replaced.
std::string text(Node node);

// Visits the nodes under `root` depth first, in document order; `enter` returns true for a
// node whose children are to be visited next. One cursor moves through the tree, so nesting
// costs the cursor's stack, not the call stack, and no node list is built.
template <typename Enter>
void walk(Node root, Enter enter) {
  TSTreeCursor cursor = ts_tree_cursor_new(root.node);
  const std::unique_ptr<TSTreeCursor, void (*)(TSTreeCursor*)> owner(&cursor,
                                                                     ts_tree_cursor_delete);
  std::size_t depth = 0;
  for (;;) {
    if (enter(Node{ts_tree_cursor_current_node(&cursor), root.source}) &&
        ts_tree_cursor_goto_first_child(&cursor)) {
      ++depth;
      continue;
    }
    for (;;) {
      if (depth == 0) return;
      if (ts_tree_cursor_goto_next_sibling(&cursor)) break;
      ts_tree_cursor_goto_parent(&cursor);
      --depth;
    }
  }
}

// Every block not nested inside another block, in document order.
std::vector<Node> blocks(Node root);

// The block after position `index`, or none after the last.
std::optional<Node> block_after(const std::vector<Node>& blocks, std::size_t index);

}  // namespace tarnwick::engines::markdown::detail
