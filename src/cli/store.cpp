#include "cli/store.hpp"

#include <fmt/format.h>

#include <chrono>
#include <ostream>

#include "cli/output.hpp"
#include "cli/progress.hpp"
#include "repo/records.hpp"
#include "store/store.hpp"
#include "text/utf8.hpp"

namespace tarnwick::cli {

namespace {

// Another process's update of the store is waited for this long: longer than an update of a
// large repository takes.
constexpr std::chrono::seconds BUSY_TIMEOUT{60};

constexpr std::size_t DOCSTRING_WIDTH = 72;

int store_failure(const store::Failure& failure, std::ostream& err) {
  err << "tarnwick-md: " << failure.message << "\n";
  return 2;
}

void report(const repo::ReadError& error, std::ostream& err) {
  err << "tarnwick-md: " << repo::describe(error) << "\n";
}

}  // namespace

int run_update(const UpdateCommand& command, std::ostream& err) {
  const auto started = std::chrono::steady_clock::now();
  auto opened = store::Store::open(
      command.db, command.rebuild ? store::Access::rebuild : store::Access::update, BUSY_TIMEOUT);
  if (!opened.ok()) return store_failure(opened.failure(), err);
  store::Store& store = *opened;

  std::optional<store::Sources> sources;
  if (!command.repeat) sources = store::Sources{command.index.paths, command.index.selection};
  std::optional<Progress> progress;
  store::UpdateOptions options{
      .jobs = command.index.jobs, .verbose = command.index.verbose, .reading = {}, .read = {}};
  options.reading = [&](std::size_t files) { progress.emplace(files, err, command.index.quiet); };
  options.read = [&](const repo::SourceFile&, const repo::Extracted& extracted) {
    if (!extracted.debug_lines.empty()) progress->clear();
    for (const auto& line : extracted.debug_lines) err << line << "\n";
    progress->advance(extracted.bytes);
  };
  auto updated = store.update(sources, options);
  if (progress) progress->clear();
  if (!updated.ok()) return store_failure(updated.failure(), err);
  const store::UpdateSummary& summary = *updated;
  for (const repo::ReadError& error : summary.errors) report(error, err);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  err << fmt::format(
      "tarnwick-md: {}: {} files ({} read), {} re-indexed ({} parsed), {} unchanged, {} "
      "removed, {} unreadable in {:.3f}s\n",
      command.db, summary.files, summary.read, summary.parsed + summary.reused, summary.parsed,
      summary.unchanged, summary.removed, summary.unreadable, seconds);
  return summary.errors.empty() ? 0 : 1;
}

int run_export(const std::string& db, std::ostream& out, std::ostream& err) {
  auto opened = store::Store::open(db, store::Access::read, BUSY_TIMEOUT);
  if (!opened.ok()) return store_failure(opened.failure(), err);
  std::string records;
  auto errors =
      opened->export_records([&](const store::StoredFile& file, const IndexedDocument& document) {
        records.clear();
        repo::append_records(records, file.path, file.file_id, document);
        out << records;
        return static_cast<bool>(out);
      });
  if (!errors.ok()) return store_failure(errors.failure(), err);
  for (const repo::ReadError& error : *errors) report(error, err);
  if (!flushed(out, err)) return 1;
  return errors->empty() ? 0 : 1;
}

int run_refs(const QueryCommand& command, std::ostream& out, std::ostream& err) {
  auto opened = store::Store::open(command.db, store::Access::read, BUSY_TIMEOUT);
  if (!opened.ok()) return store_failure(opened.failure(), err);
  auto found = opened->references_to(command.question);
  if (!found.ok()) return store_failure(found.failure(), err);
  std::size_t shown = 0;
  std::string records;
  for (const store::FoundReference& each : *found) {
    if (command.limit && shown == *command.limit) break;
    ++shown;
    const auto& reference = each.reference;
    if (command.json) {
      records.clear();
      repo::append_reference_record(records, each.file.path, each.file.file_id, reference);
      out << records;
      continue;
    }
    out << printable(fmt::format("{}:{}  {:<9}  {}{}", each.file.path, reference.line,
                                 engines::references::to_string(reference.kind), reference.name,
                                 reference.qualifier ? "#" + *reference.qualifier : std::string()))
        << (reference.source_fqn ? "  " + printable(*reference.source_fqn) : std::string()) << "\n";
  }
  if (!flushed(out, err)) return 1;
  if (shown == 0) {
    err << "tarnwick-md: no reference leads to " << printable(command.question) << "\n";
    return 1;
  }
  return 0;
}

int run_symbols(const QueryCommand& command, std::ostream& out, std::ostream& err) {
  auto opened = store::Store::open(command.db, store::Access::read, BUSY_TIMEOUT);
  if (!opened.ok()) return store_failure(opened.failure(), err);
  auto found = opened->symbols_matching(command.question, command.limit.value_or(SIZE_MAX));
  if (!found.ok()) return store_failure(found.failure(), err);
  std::string records;
  for (const store::FoundSymbol& each : *found) {
    if (command.json) {
      records.clear();
      repo::append_symbol_record(records, each.file.path, each.symbol);
      out << records;
      continue;
    }
    const Symbol& symbol = each.symbol;
    out << printable(fmt::format("{}:{}-{}  {}", each.file.path, symbol.start_line, symbol.end_line,
                                 symbol.signature));
    if (symbol.docstring) {
      out << "  " << printable(text::shortened(*symbol.docstring, DOCSTRING_WIDTH));
    }
    out << "\n";
  }
  if (!flushed(out, err)) return 1;
  if (found->empty()) {
    err << "tarnwick-md: no section matches " << printable(command.question) << "\n";
    return 1;
  }
  return 0;
}

}  // namespace tarnwick::cli
