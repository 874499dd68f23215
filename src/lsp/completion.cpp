#include "lsp/completion.hpp"

#include <algorithm>
#include <set>
#include <string_view>

#include "repo/links.hpp"

namespace tarnwick::lsp {

namespace {

using Kind = Completion::Kind;

// Where the typed part starts, `length` bytes before the offset.
gfm::Span typed(std::size_t offset, std::size_t length) {
  return {offset - length, offset};
}

// The anchors of a document: its headings' ids, or for a wiki link their texts.
void add_headings(const repo::Document* target, bool by_text, std::size_t offset,
                  std::string_view partial, std::vector<Completion>& found) {
  if (!target) return;
  for (const gfm::Heading& heading : target->read.headings) {
    if (heading.id.empty()) continue;
    found.push_back({Kind::heading, by_text ? heading.text : heading.id, heading.text,
                     typed(offset, partial.size())});
  }
}

// A link's destination typed so far: a path up to a "#" and what follows it.
void complete_destination(const repo::Workspace& workspace, const std::string& path,
                          std::string_view partial, std::size_t offset,
                          std::vector<Completion>& found) {
  if (const std::size_t hash = partial.find('#'); hash != std::string_view::npos) {
    const std::string_view fragment = partial.substr(hash + 1);
    std::string target = path;
    if (hash > 0) {
      const repo::Destination destination =
          repo::resolve_destination(path, partial.substr(0, hash));
      if (destination.status != repo::Destination::Status::found) return;
      target = destination.path;
      if (workspace.has_directory(target)) target = workspace.readme_of(target).value_or("");
    }
    add_headings(workspace.document(target), false, offset, fragment, found);
    return;
  }
  const std::size_t slash = partial.rfind('/');
  const std::string_view folder_typed =
      slash == std::string_view::npos ? std::string_view() : partial.substr(0, slash + 1);
  const std::string_view name_typed = partial.substr(folder_typed.size());
  const auto decoded = repo::percent_decode(folder_typed);
  if (!decoded) return;
  const auto folder = repo::resolve_path(repo::parent_of(path), *decoded);
  if (!folder || !workspace.has_directory(*folder)) return;
  for (const std::string& name : workspace.names_in(*folder)) {
    const std::string entry = folder->empty() ? name : *folder + "/" + name;
    if (name == ".git" || entry == path) continue;
    const bool is_folder = workspace.has_directory(entry);
    found.push_back({is_folder ? Kind::folder : Kind::file,
                     repo::encode_path(name) + (is_folder ? "/" : ""), "",
                     typed(offset, name_typed.size())});
  }
}

void complete_label(const repo::Document* document, std::string_view partial, std::size_t offset,
                    std::vector<Completion>& found) {
  if (!document) return;
  std::set<std::string> seen;
  for (const gfm::Definition& definition : document->read.definitions) {
    if (!seen.insert(definition.label).second) continue;
    const gfm::Span label = definition.label_span;
    found.push_back({Kind::label, document->text.substr(label.begin, label.end - label.begin), "",
                     typed(offset, partial.size())});
  }
}

void complete_page(const repo::Workspace& workspace, const std::string& path,
                   std::string_view partial, std::size_t offset, std::vector<Completion>& found) {
  if (const std::size_t hash = partial.find('#'); hash != std::string_view::npos) {
    const std::string_view page = partial.substr(0, hash);
    std::string target = path;
    if (!page.empty()) {
      const std::vector<std::string> pages = workspace.pages_named(page);
      if (pages.size() != 1) return;
      target = pages[0];
    }
    add_headings(workspace.document(target), true, offset, partial.substr(hash + 1), found);
    return;
  }
  std::set<std::string> seen;
  for (std::string& stem : workspace.page_stems()) {
    if (seen.insert(stem).second) {
      found.push_back({Kind::page, std::move(stem), "", typed(offset, partial.size())});
    }
  }
}

// The opener nearest before the end of `line` that no closer follows, and where what was typed
// after it starts; none when there is none.
std::optional<std::size_t> open_after(std::string_view line, std::string_view opener,
                                      std::string_view closers) {
  const std::size_t at = line.rfind(opener);
  if (at == std::string_view::npos) return std::nullopt;
  const std::size_t start = at + opener.size();
  if (line.find_first_of(closers, start) != std::string_view::npos) return std::nullopt;
  return start;
}

}  // namespace

std::vector<Completion> complete(const repo::Workspace& workspace, const std::string& path,
                                 const std::string& text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const std::size_t line_start =
      offset == 0 ? 0 : text.find_last_of("\r\n", offset - 1) + 1;  // npos + 1 is 0
  const std::string_view line = std::string_view(text).substr(line_start, offset - line_start);

  // The context whose typed part starts last is the one the cursor is in.
  enum class Context { none, destination, label, page };
  Context context = Context::none;
  std::size_t start = 0;
  const auto consider = [&](Context candidate, std::optional<std::size_t> typed_start) {
    if (typed_start && (context == Context::none || *typed_start > start)) {
      context = candidate;
      start = *typed_start;
    }
  };
  consider(Context::destination, open_after(line, "](", ") \t"));
  consider(Context::label, open_after(line, "][", "]"));
  consider(Context::page, open_after(line, "[[", "]|"));
  // A definition's destination, after "[label]: " at the start of the line.
  const std::size_t first = line.find_first_not_of(" \t>");
  const std::size_t colon = line.find("]: ");
  if (first != std::string_view::npos && line[first] == '[' && colon != std::string_view::npos) {
    const std::size_t typed_start = std::min(line.find_first_not_of(' ', colon + 3), line.size());
    if (line.find(' ', typed_start) == std::string_view::npos) {
      consider(Context::destination, typed_start);
    }
  }

  std::vector<Completion> found;
  const std::string_view partial = line.substr(std::min(start, line.size()));
  switch (context) {
    case Context::destination:
      complete_destination(workspace, path, partial, offset, found);
      break;
    case Context::label:
      complete_label(workspace.document(path), partial, offset, found);
      break;
    case Context::page:
      complete_page(workspace, path, partial, offset, found);
      break;
    case Context::none:
      break;
  }
  return found;
}

}  // namespace tarnwick::lsp
