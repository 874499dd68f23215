#include "lsp/uri.hpp"

#include "repo/links.hpp"

namespace tarnwick::lsp {

namespace {

bool is_unreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

bool starts_with_ignoring_case(std::string_view text, std::string_view lowercase) {
  if (text.size() < lowercase.size()) return false;
  for (std::size_t i = 0; i < lowercase.size(); ++i) {
    const char c = text[i];
    if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != lowercase[i]) return false;
  }
  return true;
}

}  // namespace

std::optional<std::filesystem::path> path_of_uri(std::string_view uri) {
  constexpr std::string_view scheme = "file:";
  if (!starts_with_ignoring_case(uri, scheme)) return std::nullopt;
  std::string_view rest = uri.substr(scheme.size());
  rest = rest.substr(0, rest.find_first_of("?#"));
  if (rest.starts_with("//")) {
    const std::size_t slash = rest.find('/', 2);
    const std::string_view host =
        rest.substr(2, slash == std::string_view::npos ? slash : slash - 2);
    if (!host.empty() && host != "localhost") return std::nullopt;
    rest = slash == std::string_view::npos ? std::string_view("/") : rest.substr(slash);
  }
  if (!rest.starts_with('/')) return std::nullopt;
  auto decoded = repo::percent_decode(rest);
  if (!decoded || decoded->find('\0') != std::string::npos) return std::nullopt;
  return std::filesystem::path(std::move(*decoded));
}

std::string uri_of_path(const std::filesystem::path& path) {
  constexpr std::string_view hex = "0123456789ABCDEF";
  std::string uri = "file://";
  for (const char c : path.string()) {
    if (is_unreserved(c) || c == '/') {
      uri += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      uri += '%';
      uri += hex[byte >> 4];
      uri += hex[byte & 0xF];
    }
  }
  return uri;
}

}  // namespace tarnwick::lsp
