// file: URIs and the paths they name.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwick::lsp {

// The path a file: URI names ("file:///a%20b/c.md" -> "/a b/c.md"); none for another scheme,
// a remote host or a malformed escape.
std::optional<std::filesystem::path> path_of_uri(std::string_view uri);

// The file: URI of an absolute path, every byte but letters, digits, "-._~" and "/"
// percent-encoded.
std::string uri_of_path(const std::filesystem::path& path);

}  // namespace tarnwick::lsp
