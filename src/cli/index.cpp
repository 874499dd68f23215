#include "cli/index.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

#include "cli/records.hpp"
#include "cli/rules.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::cli {

namespace markdown = engines::markdown;

namespace {

// The file's bytes, or why they could not be read.
std::optional<std::string> read_bytes(const SourceFile& file, std::string& reason) {
  std::ifstream in(file.location, std::ios::binary);
  if (!in) {
    reason = std::strerror(errno);
    return std::nullopt;
  }
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) {
    reason = std::strerror(errno);
    return std::nullopt;
  }
  return std::move(bytes).str();
}

}  // namespace

FileOutput index_file(const SourceFile& file, std::int64_t file_id, const MarkdownParser& parser,
                      bool verbose) {
  FileOutput output;
  std::string reason;
  auto bytes = read_bytes(file, reason);
  if (!bytes) {
    output.error = ReadError{file.location.string(), reason};
    return output;
  }
  if (bytes->size() >= std::numeric_limits<std::uint32_t>::max()) {
    output.error = ReadError{file.location.string(), "too large to parse (4 GiB or more)"};
    return output;
  }
  const Document document(parser, normalize_line_endings(*bytes));
  UniqueFqns unique_fqn;
  markdown::IndexerRules rules{
      .unique_fqn = std::ref(unique_fqn),
      .cap_docstring = cap_docstring,
      .debug_log = {},
  };
  if (verbose) {
    rules.debug_log = [&output](std::string_view logger, std::string_view message) {
      output.debug_lines.push_back("DEBUG:" + std::string(logger) + ":" + std::string(message));
    };
  }
  const auto symbols =
      markdown::extract_sections(document.root(), document.text(), file.prefix, file_id, rules);
  for (const auto& symbol : symbols) output.records += symbol_record(file.path, symbol);
  for (const auto& reference : markdown::extract_links(document.root(), symbols)) {
    output.records += reference_record(file.path, file_id, reference);
  }
  return output;
}

int run_index(const IndexOptions& options, std::ostream& out, std::ostream& err) {
  const Selection selection = select_files(options.paths, options.prefix);
  bool failed = !selection.errors.empty();
  for (const auto& error : selection.errors) {
    err << "tarnwick-md: cannot read " << error.what << ": " << error.reason << "\n";
  }
  const MarkdownParser parser;
  std::int64_t file_id = 0;
  for (const auto& file : selection.files) {
    const FileOutput output = index_file(file, ++file_id, parser, options.verbose);
    for (const auto& line : output.debug_lines) err << line << "\n";
    if (output.error) {
      err << "tarnwick-md: cannot read " << output.error->what << ": " << output.error->reason
          << "\n";
      failed = true;
    }
    out << output.records;
  }
  out.flush();
  return failed ? 1 : 0;
}

}  // namespace tarnwick::cli
