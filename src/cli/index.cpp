#include "cli/index.hpp"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <ostream>
#include <thread>

#include "cli/progress.hpp"
#include "cli/records.hpp"
#include "cli/rules.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::cli {

namespace markdown = engines::markdown;

Extracted extract_document(const Document& document, const std::string& prefix,
                           std::int64_t file_id, bool verbose) {
  Extracted found;
  UniqueFqns unique_fqn;
  markdown::IndexerRules rules{
      .unique_fqn = std::ref(unique_fqn),
      .cap_docstring = cap_docstring,
      .debug_log = {},
  };
  if (verbose) {
    rules.debug_log = [&found](std::string_view logger, std::string_view message) {
      found.debug_lines.push_back("DEBUG:" + std::string(logger) + ":" + std::string(message));
    };
  }
  found.symbols =
      markdown::extract_sections(document.root(), document.text(), prefix, file_id, rules);
  found.references = markdown::extract_links(document.root(), found.symbols);
  return found;
}

Extracted extract_file(const SourceFile& file, std::int64_t file_id, const MarkdownParser& parser,
                       bool verbose) {
  Extracted found;
  std::string reason;
  auto bytes = read_file(file.location, reason);
  if (!bytes) {
    found.error = ReadError{file.location.string(), reason};
    return found;
  }
  if (bytes->size() >= std::numeric_limits<std::uint32_t>::max()) {
    found.error = ReadError{file.location.string(), "too large to parse (4 GiB or more)"};
    return found;
  }
  const std::size_t size = bytes->size();
  const Document document(parser, normalize_line_endings(std::move(*bytes)));
  found = extract_document(document, file.prefix, file_id, verbose);
  found.bytes = size;
  return found;
}

FileOutput index_file(const SourceFile& file, std::int64_t file_id, const MarkdownParser& parser,
                      bool verbose) {
  Extracted found = extract_file(file, file_id, parser, verbose);
  FileOutput output{.bytes = found.bytes,
                    .records = {},
                    .debug_lines = std::move(found.debug_lines),
                    .error = std::move(found.error)};
  for (const auto& symbol : found.symbols) append_symbol_record(output.records, file.path, symbol);
  for (const auto& reference : found.references) {
    append_reference_record(output.records, file.path, file_id, reference);
  }
  return output;
}

namespace {

// A failure inside the engine must not end the whole run: it becomes that file's error.
FileOutput index_file_safely(const SourceFile& file, std::int64_t file_id,
                             const MarkdownParser& parser, bool verbose) {
  try {
    return index_file(file, file_id, parser, verbose);
  } catch (const std::exception& failure) {
    FileOutput output;
    output.error =
        ReadError{file.location.string(), std::string("internal error: ") + failure.what()};
    return output;
  }
}

// Outputs finished while an earlier file is still being indexed wait in memory, up to this
// many bytes; past it the workers wait too. Enough that a long file seldom stalls the others,
// and a bound that does not grow with the number of files.
constexpr std::size_t MAX_WAITING_BYTES = 8 * 1024 * 1024;

// The memory an output holds while it waits.
std::size_t held_bytes(const FileOutput& output) {
  std::size_t bytes = sizeof output + output.records.size();
  for (const auto& line : output.debug_lines) bytes += line.size();
  return bytes;
}

// Indexes the files on `jobs` threads and hands each output to `emit` in file order.
void index_in_order(const std::vector<SourceFile>& files, unsigned jobs, bool verbose,
                    const std::function<void(const FileOutput&)>& emit) {
  if (jobs == 1) {
    // One job needs no workers: the calling thread indexes and emits with no handoff.
    const MarkdownParser parser;
    for (std::size_t index = 0; index < files.size(); ++index) {
      emit(index_file_safely(files[index], index + 1, parser, verbose));
    }
    return;
  }
  std::mutex mutex;
  std::condition_variable ready, room;
  std::map<std::size_t, FileOutput> finished;
  std::size_t next_to_take = 0, next_to_emit = 0, waiting_bytes = 0;

  const auto work = [&] {
    const MarkdownParser parser;
    for (;;) {
      std::size_t index;
      {
        std::unique_lock lock(mutex);
        room.wait(lock, [&] {
          return next_to_take == files.size() || waiting_bytes < MAX_WAITING_BYTES;
        });
        if (next_to_take == files.size()) return;
        index = next_to_take++;
      }
      FileOutput output = index_file_safely(files[index], index + 1, parser, verbose);
      bool is_next;
      {
        const std::lock_guard lock(mutex);
        waiting_bytes += held_bytes(output);
        finished.emplace(index, std::move(output));
        is_next = index == next_to_emit;
      }
      if (is_next) ready.notify_one();
    }
  };
  std::vector<std::jthread> workers;
  for (unsigned i = 0; i < std::min<std::size_t>(jobs, files.size()); ++i)
    workers.emplace_back(work);

  while (next_to_emit < files.size()) {
    FileOutput output;
    {
      std::unique_lock lock(mutex);
      ready.wait(lock, [&] { return finished.contains(next_to_emit); });
      output = std::move(finished.extract(next_to_emit).mapped());
      waiting_bytes -= held_bytes(output);
      ++next_to_emit;
    }
    room.notify_all();
    emit(output);
  }
}

}  // namespace

int run_index(const IndexOptions& options, std::ostream& out, std::ostream& err) {
  const Selection selection = select_files(options.paths, options.prefix);
  bool failed = !selection.errors.empty();
  const auto report = [&err](const ReadError& error) {
    err << "tarnwick-md: cannot read " << error.what << ": " << error.reason << "\n";
  };
  for (const auto& error : selection.errors) report(error);
  Progress progress(selection.files.size(), err);
  index_in_order(selection.files, std::max(1u, options.jobs), options.verbose,
                 [&](const FileOutput& output) {
                   for (const auto& line : output.debug_lines) err << line << "\n";
                   if (output.error) {
                     report(*output.error);
                     failed = true;
                   }
                   out << output.records;
                   progress.advance(output.bytes);
                 });
  progress.finish();
  out.flush();
  return failed ? 1 : 0;
}

}  // namespace tarnwick::cli
