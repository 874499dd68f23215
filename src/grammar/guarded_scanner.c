/*
 * The external scanner of the tree-sitter-markdown block grammar, with two guards around it.
 * It is compiled in place of the grammar's scanner.c, which it includes.
 *
 * The saved state is bounded. The scanner saves its whole stack of open blocks (quotes, list
 * items, ...) into a buffer of TREE_SITTER_SERIALIZATION_BUFFER_SIZE bytes without checking the
 * size, so a document nested more than about 250 blocks deep would write past the end of that
 * buffer. Here the saved stack is cut to what fits: the blocks nested deeper are forgotten when
 * the state is restored. That changes how such a document parses (the scanner's own per-line
 * count of matched blocks is a byte anyway), but it never corrupts memory.
 *
 * Runs of delimiters are not rescanned. At every "`", "~", "*" and "_" the scanner counts the
 * whole run of them ahead before it looks at whether any token it could make there is wanted,
 * so a paragraph holding a long run costs time quadratic in the run. Where none of those
 * tokens is wanted the scan cannot succeed, and it is skipped. Nothing is lost by skipping:
 * the runtime restores the scanner's state before every scan, so a failed scan leaves no trace.
 *
 * The stack keeps its memory. Restoring a state forgets the capacity of the stack of blocks and
 * reallocates it whenever the state holds a block: half a million reallocations on the corpus,
 * a quarter of all the parse's allocations. Here a stack that has room takes the blocks as they
 * are; the state restored is the same.
 */
/* Every function takes a name of the library's own, as the grammar's parser.c does in the
 * build, so that a host's own copy of the grammar neither replaces ours nor is replaced by it. */
#define tree_sitter_markdown_external_scanner_create \
  tarnwick_tree_sitter_markdown_external_scanner_create
#define tree_sitter_markdown_external_scanner_destroy \
  tarnwick_tree_sitter_markdown_external_scanner_destroy
#define tree_sitter_markdown_external_scanner_deserialize tarnwick_markdown_deserialize_reallocating
#define tree_sitter_markdown_external_scanner_scan tarnwick_markdown_scan_unguarded
#define tree_sitter_markdown_external_scanner_serialize tarnwick_markdown_serialize_unbounded
#include "scanner.c"
#undef tree_sitter_markdown_external_scanner_deserialize
#undef tree_sitter_markdown_external_scanner_scan
#undef tree_sitter_markdown_external_scanner_serialize

/* The bytes that the scanner writes before its stack of blocks. */
enum { SCANNER_HEADER_SIZE = 5 };

unsigned tarnwick_tree_sitter_markdown_external_scanner_serialize(void *payload, char *buffer) {
  Scanner *scanner = (Scanner *)payload;
  const size_t fitting =
      (TREE_SITTER_SERIALIZATION_BUFFER_SIZE - SCANNER_HEADER_SIZE) / sizeof(Block);
  const size_t open = scanner->open_blocks.size;
  if (open > fitting) scanner->open_blocks.size = fitting;
  const unsigned length = tarnwick_markdown_serialize_unbounded(payload, buffer);
  scanner->open_blocks.size = open;
  return length;
}

void tarnwick_tree_sitter_markdown_external_scanner_deserialize(void *payload, const char *buffer,
                                                                unsigned length) {
  Scanner *scanner = (Scanner *)payload;
  const size_t capacity = scanner->open_blocks.capacity;
  const size_t blocks =
      length > SCANNER_HEADER_SIZE ? (length - SCANNER_HEADER_SIZE) / sizeof(Block) : 0;
  if (blocks > capacity) {
    tarnwick_markdown_deserialize_reallocating(payload, buffer, length);
    return;
  }
  /* The header alone, which touches no memory, then the blocks into the room there is. */
  tarnwick_markdown_deserialize_reallocating(
      payload, buffer, length < SCANNER_HEADER_SIZE ? length : SCANNER_HEADER_SIZE);
  scanner->open_blocks.capacity = capacity;
  if (blocks > 0) {
    memcpy(scanner->open_blocks.items, buffer + SCANNER_HEADER_SIZE, blocks * sizeof(Block));
  }
  scanner->open_blocks.size = blocks;
}

/* True when the scan would reach the scanner's case for the delimiter ahead, and no token that
 * the case can make is wanted: then the scan fails after counting the run. */
static bool fails_on_delimiter_run(const Scanner *s, TSLexer *lexer, const bool *valid) {
  if (valid[TRIGGER_ERROR] || valid[CLOSE_BLOCK] || lexer->eof(lexer) ||
      (s->state & STATE_MATCHING)) {
    return false;
  }
  if (valid[INDENTED_CHUNK_START] && !valid[NO_INDENTED_CHUNK] && s->indentation >= 4) {
    return false;
  }
  switch (lexer->lookahead) {
    case '`':
      return !valid[FENCED_CODE_BLOCK_START_BACKTICK] && !valid[FENCED_CODE_BLOCK_END_BACKTICK];
    case '~':
      return !valid[FENCED_CODE_BLOCK_START_TILDE] && !valid[FENCED_CODE_BLOCK_END_TILDE];
    case '*':
      return !valid[THEMATIC_BREAK] && !valid[LIST_MARKER_STAR] &&
             !valid[LIST_MARKER_STAR_DONT_INTERRUPT];
    case '_':
      return !valid[THEMATIC_BREAK];
    default:
      return false;
  }
}

bool tarnwick_tree_sitter_markdown_external_scanner_scan(void *payload, TSLexer *lexer,
                                                         const bool *valid_symbols) {
  if (fails_on_delimiter_run((const Scanner *)payload, lexer, valid_symbols)) return false;
  return tarnwick_markdown_scan_unguarded(payload, lexer, valid_symbols);
}
