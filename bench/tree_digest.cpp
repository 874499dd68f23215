// Prints one line for every Markdown file of a directory: its path, the number of nodes of its
// block tree and a hash of their types, named flags and byte and point ranges in document
// order. Builds on two tree-sitter runtimes parse the corpus alike when their outputs match.
#include <tree_sitter/api.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string_view>

#include "corpus_files.hpp"
#include "engines/markdown/node.hpp"
#include "tarnwick/tree.hpp"

namespace {

struct Digest {
  std::uint64_t nodes = 0;
  std::uint64_t hash = 14695981039346656037u;  // FNV-1a 64

  void add(std::string_view bytes) {
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211u;
  }
  void add(std::uint32_t value) { add(std::string_view(reinterpret_cast<char*>(&value), 4)); }
  void add(TSNode node) {
    ++nodes;
    add(std::string_view(ts_node_type(node)));
    add(std::uint32_t{ts_node_is_named(node)} | std::uint32_t{ts_node_is_missing(node)} << 1);
    add(ts_node_start_byte(node));
    add(ts_node_end_byte(node));
    add(ts_node_start_point(node).row);
    add(ts_node_start_point(node).column);
    add(ts_node_end_point(node).row);
    add(ts_node_end_point(node).column);
  }
};

// Every node once, parents before children, children in order.
Digest digest_of(tarnwick::engines::markdown::Node root) {
  Digest digest;
  tarnwick::engines::markdown::detail::walk(root, [&digest](auto node) {
    digest.add(node.node);
    return true;
  });
  return digest;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CORPUS_DIRECTORY\n", argv[0]);
    return 2;
  }
  try {
    tarnwick::MarkdownParser parser;
    for (const auto& file : tarnwick::bench::load_corpus(argv[1]).files) {
      const tarnwick::Document document(parser, file.text);
      const Digest digest = digest_of(document.root());
      std::printf("%s %llu %016llx\n", file.path.c_str(),
                  static_cast<unsigned long long>(digest.nodes),
                  static_cast<unsigned long long>(digest.hash));
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
    return 1;
  }
  return 0;
}
