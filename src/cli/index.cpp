#include "cli/index.hpp"

#include <ostream>

#include "cli/output.hpp"
#include "cli/progress.hpp"
#include "repo/extraction.hpp"
#include "repo/records.hpp"

namespace tarnwick::cli {

int run_index(const IndexOptions& options, std::ostream& out, std::ostream& err) {
  const repo::Selection selection = repo::select_files(options.paths, options.selection);
  if (options.list_files) {
    for (const auto& error : selection.errors) {
      err << "tarnwick-md: " << repo::describe(error) << "\n";
    }
    for (const auto& file : selection.files) out << file.location.string() << "\n";
    if (!flushed(out, err)) return 1;
    return selection.errors.empty() ? 0 : 1;
  }
  Progress progress(selection.files.size(), err, options.quiet);
  Summary summary;
  const auto report = [&](const repo::ReadError& error) {
    progress.clear();
    err << "tarnwick-md: " << repo::describe(error) << "\n";
    ++summary.errors;
  };
  for (const auto& error : selection.errors) report(error);
  std::string records;
  repo::extract_in_order(selection.files, 1, options.jobs, options.verbose,
                         [&](const repo::SourceFile& file, const repo::Extracted& extracted) {
                           if (!extracted.debug_lines.empty()) progress.clear();
                           for (const auto& line : extracted.debug_lines) err << line << "\n";
                           if (extracted.error) report(*extracted.error);
                           records.clear();
                           repo::append_records(records, file.path, extracted.file_id,
                                                extracted.found);
                           out << records;
                           ++summary.files;
                           summary.sections += extracted.found.symbols.size();
                           summary.links += extracted.found.references.size();
                           progress.advance(extracted.bytes);
                           return static_cast<bool>(out);
                         });
  progress.finish(summary);
  if (!flushed(out, err)) return 1;
  return summary.errors == 0 ? 0 : 1;
}

}  // namespace tarnwick::cli
