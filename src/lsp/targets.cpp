#include "lsp/targets.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "repo/links.hpp"

namespace tarnwick::lsp {

namespace {

// The lines a span's first and last bytes stand on, as a span of the text.
gfm::Span whole_lines(std::string_view text, gfm::Span span) {
  const std::size_t before =
      span.begin == 0 ? std::string_view::npos : text.find_last_of("\r\n", span.begin - 1);
  const std::size_t after = text.find_first_of("\r\n", span.end);
  return {before == std::string_view::npos ? 0 : before + 1,
          after == std::string_view::npos ? text.size() : after};
}

}  // namespace

AtOffset what_is_at(const repo::Document& document, std::size_t offset) {
  const gfm::LinkedDocument& read = document.read;
  using Kind = AtOffset::Kind;
  for (std::size_t i = 0; i < read.definitions.size(); ++i) {
    if (read.definitions[i].label_span.contains(offset)) return {Kind::definition, i};
  }
  for (std::size_t i = 0; i < read.references.size(); ++i) {
    if (read.references[i].span.contains(offset)) return {Kind::reference, i};
  }
  for (std::size_t i = 0; i < read.links.size(); ++i) {
    if (read.links[i].span.contains(offset)) return {Kind::link, i};
  }
  for (std::size_t i = 0; i < read.headings.size(); ++i) {
    const gfm::Heading& heading = read.headings[i];
    if (!heading.text_span.empty() &&
        whole_lines(document.text, heading.text_span).contains(offset)) {
      return {Kind::heading, i};
    }
  }
  return {};
}

std::optional<std::size_t> heading_named(const gfm::LinkedDocument& read, std::string_view fragment,
                                         gfm::LinkSyntax syntax) {
  const std::vector<std::string> forms = gfm::anchor_forms(fragment, syntax);
  for (std::size_t i = 0; i < read.headings.size(); ++i) {
    if (std::find(forms.begin(), forms.end(), read.headings[i].id) != forms.end()) return i;
  }
  return std::nullopt;
}

namespace {

// Where a link leads, without the heading: the file or folder, and the fragment.
std::optional<Lead> destination_of(const repo::Workspace& workspace, const std::string& from,
                                   const gfm::Link& link) {
  Lead lead;
  if (link.syntax == gfm::LinkSyntax::wiki) {
    const std::string_view destination = link.destination;
    const std::size_t hash = destination.find('#');
    const std::string_view page = destination.substr(0, hash);
    if (hash != std::string_view::npos && hash + 1 < destination.size()) {
      lead.fragment = std::string(destination.substr(hash + 1));
    }
    if (page.empty()) {
      lead.path = from;
    } else {
      const std::vector<std::string> pages = workspace.pages_named(page);
      if (pages.size() != 1) return std::nullopt;
      lead.path = pages[0];
    }
  } else {
    repo::Destination destination = repo::resolve_destination(from, link.destination);
    if (destination.status != repo::Destination::Status::found) return std::nullopt;
    lead.path = std::move(destination.path);
    if (destination.fragment && !destination.fragment->empty()) {
      lead.fragment = std::move(destination.fragment);
    }
    if (!workspace.has_file(lead.path)) {
      if (!workspace.has_directory(lead.path)) return std::nullopt;
      if (lead.fragment) {
        auto readme = workspace.readme_of(lead.path);
        if (!readme) return std::nullopt;
        lead.path = std::move(*readme);
      }
    }
  }
  return lead;
}

}  // namespace

std::optional<Lead> lead_of(const repo::Workspace& workspace, const std::string& from,
                            const gfm::Link& link) {
  std::optional<Lead> lead = destination_of(workspace, from, link);
  if (lead && lead->fragment) {
    if (const repo::Document* target = workspace.document(lead->path)) {
      lead->heading = heading_named(target->read, *lead->fragment, link.syntax);
    }
  }
  return lead;
}

std::optional<std::size_t> definition_of(const gfm::LinkedDocument& read,
                                         const gfm::Reference& reference) {
  for (std::size_t i = 0; i < read.definitions.size(); ++i) {
    if (read.definitions[i].label == reference.label) return i;
  }
  return std::nullopt;
}

gfm::Span link_place(const gfm::Link& link) {
  return link.written_span.empty() ? link.span : link.written_span;
}

void for_each_link_to(const repo::Workspace& workspace, const std::string& path,
                      const std::function<void(const std::string& from, const gfm::Link& link,
                                               const Lead& lead)>& visit) {
  // The target's headings by id, looked up once for the many links a document may have to it.
  std::unordered_map<std::string_view, std::size_t> headings;
  if (const repo::Document* target = workspace.document(path)) {
    for (std::size_t index = 0; index < target->read.headings.size(); ++index) {
      headings.try_emplace(target->read.headings[index].id, index);
    }
  }
  std::set<std::string> candidates{path};
  for (std::string& dependent : workspace.documents_depending_on(path)) {
    candidates.insert(std::move(dependent));
  }
  for (const std::string& candidate : candidates) {
    const repo::Document* document = workspace.document(candidate);
    if (!document) continue;
    // A document repeats its destinations (a table of contents, "back to top" links): each
    // distinct one, with its syntax, is resolved once.
    std::map<std::pair<std::string_view, gfm::LinkSyntax>, std::optional<Lead>> leads;
    for (const gfm::Link& link : document->read.links) {
      auto [known, is_new] = leads.try_emplace({link.destination, link.syntax});
      std::optional<Lead>& lead = known->second;
      if (is_new) {
        lead = destination_of(workspace, candidate, link);
        if (lead && lead->path != path) lead.reset();
        if (lead && lead->fragment) {
          for (const std::string& form : gfm::anchor_forms(*lead->fragment, link.syntax)) {
            const auto found = headings.find(form);
            if (found != headings.end() && (!lead->heading || found->second < *lead->heading)) {
              lead->heading = found->second;
            }
          }
        }
      }
      if (lead) visit(candidate, link, *lead);
    }
  }
}

std::vector<Place> links_to(const repo::Workspace& workspace, const std::string& path,
                            Fragments fragments, std::optional<std::size_t> heading) {
  std::vector<Place> places;
  for_each_link_to(
      workspace, path, [&](const std::string& from, const gfm::Link& link, const Lead& lead) {
        const bool wanted =
            fragments == Fragments::any || (fragments == Fragments::none && !lead.fragment) ||
            (fragments == Fragments::named && lead.heading && lead.heading == heading);
        if (wanted) places.push_back({from, link_place(link)});
      });
  return places;
}

}  // namespace tarnwick::lsp
