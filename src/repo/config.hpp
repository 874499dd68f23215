// A repository's configuration file, .tarnwick-md.toml: the options a workflow would otherwise
// repeat on every command line, read and validated once for every tool that runs on the
// repository.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarnwick::repo {

inline constexpr std::string_view CONFIG_FILE_NAME = ".tarnwick-md.toml";

// A value of the file and the line it was written on, for errors found once the value is used.
struct ConfigString {
  std::string value;
  std::int64_t line = 0;
};

// The file's settings, each named as the command line's flag; empty or none when not set.
struct Config {
  std::vector<ConfigString> ignore;  // problem codes not reported
  std::vector<std::string> exclude;  // globs of files whose links are not checked or indexed
  std::vector<std::string> accept;   // globs of link targets, as written, known to be fine
  std::optional<bool> wiki;          // check [[wiki links]] too
};

// What is wrong with a configuration file: where, which key (empty when the file is not TOML
// at all) and why, with the word that was probably meant.
struct ConfigError {
  std::string file;
  std::int64_t line = 0;  // 1-based; 0 when the file could not be read
  std::string key;
  std::string message;
  std::optional<std::string> suggestion;
};

// One line: "FILE:LINE: KEY: message (did you mean 'x'?)".
std::string describe(const ConfigError& error);

// Reads and validates a configuration file. An unknown key, a value of the wrong type, an
// empty glob and a problem code not among `codes` are errors, as is a file that cannot be read
// or is not TOML.
std::variant<Config, ConfigError> read_config(const std::filesystem::path& file,
                                              std::span<const std::string> codes);

}  // namespace tarnwick::repo
