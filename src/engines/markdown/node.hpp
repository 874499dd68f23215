// Reading the block tree: node operations, the flat block list, and node text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

// Node types the walks enter instead of yielding.
using NodeTypes = std::unordered_set<std::string_view>;
extern const NodeTypes CONTAINERS;

inline constexpr std::string_view ATX_HEADING = "atx_heading";
inline constexpr std::string_view SETEXT_HEADING = "setext_heading";
inline constexpr std::string_view YAML_FRONT_MATTER = "minus_metadata";
inline constexpr std::string_view TOML_FRONT_MATTER = "plus_metadata";

std::string_view type(Node node);
std::vector<Node> children(Node node);
std::uint32_t start_row(Node node);
// The first child of the given type.
std::optional<Node> first_child(Node node, std::string_view child_type);

// The node's text: its source bytes decoded as UTF-8, ill-formed subparts replaced.
std::string text(Node node);

// Visits the nodes under `root` depth first, in document order; `enter` returns true for a
// node whose children are to be visited next. Iterative: nesting costs memory, not stack.
template <typename Enter>
void walk(Node root, Enter enter) {
  std::vector<Node> pending{root};
  while (!pending.empty()) {
    const Node node = pending.back();
    pending.pop_back();
    if (enter(node)) {
      const std::vector<Node> inner = children(node);
      pending.insert(pending.end(), inner.rbegin(), inner.rend());
    }
  }
}

// Every block not nested inside another block, in document order.
std::vector<Node> blocks(Node root);

// The block after position `index`, or none after the last.
std::optional<Node> block_after(const std::vector<Node>& blocks, std::size_t index);

}  // namespace tarnwick::engines::markdown::detail
