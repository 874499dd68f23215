#include "lsp/edits.hpp"

#include <set>

#include "gfm/slug.hpp"
#include "lsp/targets.hpp"
#include "repo/links.hpp"

namespace tarnwick::lsp {

namespace {

// Where the fragment of a link's destination stands, after its "#"; none where the link's place
// is not known or it has no fragment.
std::optional<gfm::Span> fragment_span(const gfm::Link& link) {
  const std::size_t hash = link.written.find('#');
  if (link.written_span.empty() || hash == std::string::npos) return std::nullopt;
  return gfm::Span{link.written_span.begin + hash + 1, link.written_span.end};
}

// Where a path goes when the moves are made.
std::string moved(const std::vector<std::pair<std::string, std::string>>& moves,
                  const std::string& path) {
  for (const auto& [from, to] : moves) {
    if (path == from) return to;
    if (path.starts_with(from + "/")) return to + path.substr(from.size());
  }
  return path;
}

}  // namespace

std::vector<TextEdit> rename_heading(const repo::Workspace& workspace, const std::string& path,
                                     std::size_t heading, std::string_view text, Refusal& refusal) {
  const repo::Document* document = workspace.document(path);
  if (!document || heading >= document->read.headings.size()) {
    refusal.reason = "there is no heading here";
    return {};
  }
  const gfm::Span span = document->read.headings[heading].text_span;
  if (span.empty() || text.find_first_of("\r\n") != std::string_view::npos || text.empty()) {
    refusal.reason = "a heading is renamed to one line of text";
    return {};
  }
  std::string renamed = document->text;
  renamed.replace(span.begin, span.end - span.begin, text);
  const repo::SharedDocument after =
      repo::reread_document(*document, std::move(renamed), workspace.options());
  const std::vector<gfm::Heading>& old_headings = document->read.headings;
  const std::vector<gfm::Heading>& new_headings = after->read.headings;
  if (new_headings.size() != old_headings.size() ||
      new_headings[heading].level != old_headings[heading].level) {
    refusal.reason = "the new name would make other headings of the document";
    return {};
  }

  std::vector<TextEdit> edits{{path, span, std::string(text)}};
  std::set<std::pair<std::string, std::size_t>> edited;  // by document and link start
  for (std::size_t index = 0; index < old_headings.size(); ++index) {
    const gfm::Heading& old_heading = old_headings[index];
    const gfm::Heading& new_heading = new_headings[index];
    if (old_heading.id == new_heading.id || old_heading.id.empty()) continue;
    for_each_link_to(
        workspace, path, [&](const std::string& from, const gfm::Link& link, const Lead& lead) {
          if (lead.heading != index) return;
          const auto fragment = fragment_span(link);
          if (!fragment || !edited.emplace(from, link.span.begin).second) return;
          // A wiki link names a heading by its text unless it wrote the id itself.
          const bool by_text = link.syntax == gfm::LinkSyntax::wiki &&
                               gfm::lowercase(*lead.fragment) != old_heading.id;
          edits.push_back({from, *fragment, by_text ? new_heading.text : new_heading.id});
        });
  }
  return edits;
}

std::vector<TextEdit> rename_label(const repo::Document& document, const std::string& path,
                                   const std::string& label, std::string_view text) {
  std::vector<TextEdit> edits;
  for (const gfm::Definition& definition : document.read.definitions) {
    if (definition.label == label)
      edits.push_back({path, definition.label_span, std::string(text)});
  }
  for (const gfm::Reference& reference : document.read.references) {
    if (reference.label == label) edits.push_back({path, reference.label_span, std::string(text)});
  }
  return edits;
}

std::vector<TextEdit> move_files(const repo::Workspace& workspace,
                                 const std::vector<std::pair<std::string, std::string>>& moves) {
  // The documents that may hold a link to what moves, and the moved documents themselves.
  std::set<std::string> candidates;
  const auto add_dependents = [&](const std::string& path) {
    for (std::string& dependent : workspace.documents_depending_on(path)) {
      candidates.insert(std::move(dependent));
    }
  };
  for (const auto& [from, to] : moves) {
    add_dependents(from);
    for (const std::string& file : workspace.files()) {
      if (!file.starts_with(from + "/")) continue;
      add_dependents(file);
      if (workspace.document(file)) candidates.insert(file);
    }
    if (workspace.document(from)) candidates.insert(from);
  }

  std::vector<TextEdit> edits;
  for (const std::string& path : candidates) {
    const repo::Document* document = workspace.document(path);
    if (!document) continue;
    const std::string new_path = moved(moves, path);
    for (const gfm::Link& link : document->read.links) {
      if (link.written_span.empty()) continue;
      if (link.syntax == gfm::LinkSyntax::wiki) {
        const std::optional<Lead> lead = lead_of(workspace, path, link);
        const std::string_view page =
            std::string_view(link.written).substr(0, link.written.find('#'));
        if (!lead || page.empty() || page.find('/') != std::string_view::npos) continue;
        const std::string_view new_stem = repo::stem_of(repo::name_of(moved(moves, lead->path)));
        if (repo::stem_of(repo::name_of(lead->path)) == new_stem) continue;
        edits.push_back({path,
                         {link.written_span.begin, link.written_span.begin + page.size()},
                         std::string(new_stem)});
        continue;
      }
      const repo::Destination destination = repo::resolve_destination(path, link.destination);
      if (destination.status != repo::Destination::Status::found || !destination.has_path ||
          (!workspace.has_file(destination.path) && !workspace.has_directory(destination.path))) {
        continue;
      }
      const std::string new_target = moved(moves, destination.path);
      if (new_path == path && new_target == destination.path) continue;
      const std::string_view written = link.written;
      const std::size_t rest = std::min(written.find_first_of("?#"), written.size());
      std::string relinked =
          repo::encode_path(repo::rewritten(written.substr(0, rest), new_path, new_target));
      relinked.append(written.substr(rest));
      if (relinked != written) edits.push_back({path, link.written_span, std::move(relinked)});
    }
  }
  return edits;
}

}  // namespace tarnwick::lsp
