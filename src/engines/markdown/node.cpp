#include "engines/markdown/node.hpp"

#include <algorithm>

#include "text/utf8.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {

std::string_view type(Node node) {
  return ts_node_type(node.node);
}

std::vector<Node> children(Node node) {
  std::vector<Node> result;
  result.reserve(ts_node_child_count(node.node));
  TSTreeCursor cursor = ts_tree_cursor_new(node.node);
  if (ts_tree_cursor_goto_first_child(&cursor)) {
    do {
      result.push_back({ts_tree_cursor_current_node(&cursor), node.source});
    } while (ts_tree_cursor_goto_next_sibling(&cursor));
  }
  ts_tree_cursor_delete(&cursor);
  return result;
}

std::uint32_t start_row(Node node) {
  return ts_node_start_point(node.node).row;
}

std::optional<Node> first_child(Node node, std::string_view child_type) {
  for (const Node child : children(node)) {
    if (type(child) == child_type) return child;
  }
  return std::nullopt;
}

std::string_view bytes(Node node) {
  const std::size_t size = node.source.size();
  const std::size_t start = std::min<std::size_t>(ts_node_start_byte(node.node), size);
  const std::size_t end = std::clamp<std::size_t>(ts_node_end_byte(node.node), start, size);
  return node.source.substr(start, end - start);
}

std::string text(Node node) {
  return decode_utf8(bytes(node));
}

std::vector<Node> blocks(Node root) {
  std::vector<Node> found;
  walk(root, [&found](Node node) {
    if (CONTAINERS.contains(type(node))) return true;
    found.push_back(node);
    return false;
  });
  return found;
}

std::optional<Node> block_after(const std::vector<Node>& blocks, std::size_t index) {
  if (index + 1 < blocks.size()) return blocks[index + 1];
  return std::nullopt;
}

}  // namespace tarnwick::engines::markdown::detail
