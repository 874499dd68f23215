#include "repo/config.hpp"

#include <toml++/toml.h>
#include <algorithm>
#include <array>

#include "repo/selection.hpp"
#include "text/nearest.hpp"

namespace tarnwick::repo {

namespace {

const std::array<std::string, 4> KEYS = {"accept", "exclude", "ignore", "wiki"};

std::int64_t line_of(const toml::source_region& source) {
  return static_cast<std::int64_t>(source.begin.line);
}

// The strings of an array value, each with its line; an error when the value is not an array
// of non-empty strings.
std::variant<std::vector<ConfigString>, ConfigError> strings(const std::string& file,
                                                             const toml::key& key,
                                                             const toml::node& value,
                                                             std::string_view what) {
  const auto wrong = [&](const toml::node& at) {
    return ConfigError{file, line_of(at.source()), std::string(key.str()),
                       "must be an array of " + std::string(what) + ", such as " +
                           std::string(key.str()) + " = [\"" +
                           (key.str() == "ignore" ? "site-path" : "docs/drafts/*") + "\"]",
                       std::nullopt};
  };
  const toml::array* array = value.as_array();
  if (!array) return wrong(value);
  std::vector<ConfigString> found;
  for (const toml::node& element : *array) {
    const auto* text = element.as_string();
    if (!text || text->get().empty()) return wrong(element);
    found.push_back({text->get(), line_of(element.source())});
  }
  return found;
}

}  // namespace

std::string describe(const ConfigError& error) {
  std::string text = error.file;
  if (error.line > 0) text.append(":").append(std::to_string(error.line));
  text.append(": ");
  if (!error.key.empty()) text.append(error.key).append(": ");
  text.append(error.message);
  if (error.suggestion) text.append(" (did you mean '").append(*error.suggestion).append("'?)");
  return text;
}

std::variant<Config, ConfigError> read_config(const std::filesystem::path& file,
                                              std::span<const std::string> codes) {
  const std::string name = file.string();
  std::string reason;
  const std::optional<std::string> text = read_file(file, reason);
  if (!text) return ConfigError{name, 0, "", "cannot read it: " + reason, std::nullopt};
  toml::table table;
  try {
    table = toml::parse(*text, name);
  } catch (const toml::parse_error& error) {
    // The description may quote a line break, and the error is one line.
    std::string description(error.description());
    std::replace(description.begin(), description.end(), '\n', ' ');
    std::replace(description.begin(), description.end(), '\r', ' ');
    return ConfigError{name, line_of(error.source()), "", "not TOML: " + description, std::nullopt};
  }

  Config config;
  for (const auto& [key, value] : table) {
    const std::string_view word = key.str();
    const std::int64_t line = line_of(key.source());
    if (word == "wiki") {
      if (!value.is_boolean()) {
        return ConfigError{name, line, "wiki", "must be true or false", std::nullopt};
      }
      config.wiki = value.as_boolean()->get();
    } else if (word == "ignore") {
      auto found = strings(name, key, value, "problem codes");
      if (auto* error = std::get_if<ConfigError>(&found)) return std::move(*error);
      for (ConfigString& code : std::get<std::vector<ConfigString>>(found)) {
        if (std::find(codes.begin(), codes.end(), code.value) == codes.end()) {
          return ConfigError{name, code.line, "ignore",
                             "'" + code.value + "' is not a problem code",
                             text::nearest(code.value, codes)};
        }
        config.ignore.push_back(std::move(code));
      }
    } else if (word == "exclude" || word == "accept") {
      auto found = strings(name, key, value, "globs");
      if (auto* error = std::get_if<ConfigError>(&found)) return std::move(*error);
      std::vector<std::string>& globs = word == "exclude" ? config.exclude : config.accept;
      for (ConfigString& glob : std::get<std::vector<ConfigString>>(found)) {
        globs.push_back(std::move(glob.value));
      }
    } else {
      return ConfigError{name, line, std::string(word), "unknown key", text::nearest(word, KEYS)};
    }
  }
  return config;
}

}  // namespace tarnwick::repo
