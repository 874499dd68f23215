#include "repo/links.hpp"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "gfm/slug.hpp"

namespace tarnwick::repo {

namespace {

bool ends_with_ascii_nocase(std::string_view name, std::string_view suffix) {
  if (name.size() < suffix.size()) return false;
  return std::equal(suffix.begin(), suffix.end(), name.end() - suffix.size(), [](char a, char b) {
    return a == (b >= 'A' && b <= 'Z' ? static_cast<char>(b - 'A' + 'a') : b);
  });
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string_view parent_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view name_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view stem_of(std::string_view name) {
  return name.substr(0, name.rfind('.'));
}

bool is_markdown(std::string_view name) {
  return ends_with_ascii_nocase(name, ".md") || ends_with_ascii_nocase(name, ".markdown");
}

std::string_view wiki_page(std::string_view page) {
  return is_markdown(page) ? stem_of(page) : page;
}

std::string wiki_name(std::string_view page) {
  return gfm::lowercase(name_of(wiki_page(page)));
}

bool names_page(std::string_view path, std::string_view page) {
  if (!is_markdown(name_of(path))) return false;
  const std::string stem = gfm::lowercase(stem_of(path));
  const std::string lowered = gfm::lowercase(wiki_page(page));
  return stem == lowered || (stem.size() > lowered.size() && stem.ends_with(lowered) &&
                             stem[stem.size() - lowered.size() - 1] == '/');
}

std::optional<std::string> percent_decode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size(); ++pos) {
    if (text[pos] != '%') {
      decoded += text[pos];
      continue;
    }
    if (pos + 2 >= text.size() || hex_value(text[pos + 1]) < 0 || hex_value(text[pos + 2]) < 0) {
      return std::nullopt;
    }
    decoded += static_cast<char>(hex_value(text[pos + 1]) * 16 + hex_value(text[pos + 2]));
    pos += 2;
  }
  return decoded;
}

std::optional<std::string> resolve_path(std::string_view folder, std::string_view path) {
  std::vector<std::string_view> segments;
  const auto add = [&](std::string_view text) {
    for (std::size_t start = 0; start <= text.size();) {
      const std::size_t slash = std::min(text.find('/', start), text.size());
      const std::string_view segment = text.substr(start, slash - start);
      if (segment == "..") {
        if (segments.empty()) return false;
        segments.pop_back();
      } else if (!segment.empty() && segment != ".") {
        segments.push_back(segment);
      }
      start = slash + 1;
    }
    return true;
  };
  if (!path.starts_with('/') && !add(folder)) return std::nullopt;
  if (!add(path)) return std::nullopt;
  std::string resolved;
  for (const std::string_view segment : segments) {
    if (!resolved.empty()) resolved += '/';
    resolved += segment;
  }
  return resolved;
}

Destination resolve_destination(std::string_view from, std::string_view destination) {
  Destination resolved;
  std::optional<std::string_view> fragment;
  if (const std::size_t hash = destination.find('#'); hash != std::string_view::npos) {
    fragment = destination.substr(hash + 1);
    destination = destination.substr(0, hash);
  }
  if (const std::size_t mark = destination.find('?'); mark != std::string_view::npos) {
    resolved.query = destination.substr(mark + 1);
    destination = destination.substr(0, mark);
  }
  const auto path = percent_decode(destination);
  if (fragment) resolved.fragment = percent_decode(*fragment);
  if (!path || (fragment && !resolved.fragment)) {
    resolved.status = Destination::Status::malformed;
    return resolved;
  }
  resolved.has_path = !path->empty();
  resolved.from_root = path->starts_with('/');
  if (!resolved.has_path) {
    resolved.path = from;
    return resolved;
  }
  auto target = resolve_path(parent_of(from), *path);
  if (!target) {
    resolved.status = Destination::Status::outside;
    return resolved;
  }
  resolved.path = std::move(*target);
  return resolved;
}

std::string encode_path(std::string_view path) {
  constexpr std::string_view HEX = "0123456789ABCDEF";
  std::string text;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte == 0x7F ||
        std::string_view("%<>()#?\\").find(c) != std::string_view::npos) {
      text += '%';
      text += HEX[byte >> 4];
      text += HEX[byte & 0xF];
    } else {
      text += c;
    }
  }
  return text;
}

std::string rewritten(std::string_view written, std::string_view from, std::string_view to) {
  namespace fs = std::filesystem;
  const std::size_t rest = std::min(written.find_first_of("?#"), written.size());
  std::string link;
  if (written.starts_with('/')) {
    link.append("/").append(to);
  } else if (const std::string_view folder = parent_of(from); folder.empty()) {
    link = to;
  } else {
    link = fs::path(std::string(to)).lexically_relative(std::string(folder)).generic_string();
  }
  if (link.empty()) link.push_back('.');
  return link.append(written.substr(rest));
}

}  // namespace tarnwick::repo
