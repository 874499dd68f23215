/*
 * The external scanner of the tree-sitter-markdown block grammar, with its saved state bounded
 * by the runtime's serialization buffer.
 *
 * The scanner saves its whole stack of open blocks (quotes, list items, ...) into a buffer of
 * TREE_SITTER_SERIALIZATION_BUFFER_SIZE bytes without checking the size, so a document nested
 * more than about 250 blocks deep would write past the end of that buffer. Here the saved stack
 * is cut to what fits: the blocks nested deeper are forgotten when the state is restored. That
 * changes how such a document parses (the scanner's own per-line count of matched blocks is a
 * byte anyway), but it never corrupts memory.
 */
#define tree_sitter_markdown_external_scanner_serialize serialize_unbounded
#include "scanner.c"
#undef tree_sitter_markdown_external_scanner_serialize

/* The bytes that the scanner writes before its stack of blocks. */
enum { SCANNER_HEADER_SIZE = 5 };

unsigned tree_sitter_markdown_external_scanner_serialize(void *payload, char *buffer) {
  Scanner *scanner = (Scanner *)payload;
  const size_t fitting = (TREE_SITTER_SERIALIZATION_BUFFER_SIZE - SCANNER_HEADER_SIZE) / sizeof(Block);
  const size_t open = scanner->open_blocks.size;
  if (open > fitting) scanner->open_blocks.size = fitting;
  const unsigned length = serialize_unbounded(payload, buffer);
  scanner->open_blocks.size = open;
  return length;
}
