#include "cli/config.hpp"

#include <filesystem>
#include <variant>
#include <vector>

namespace tarnwick::cli {

namespace {

// The configuration chosen, or the line that says why it cannot be used.
std::variant<repo::Config, std::string> configuration(const ConfigChoice& choice) {
  if (choice.none && choice.file) return "--config and --no-config cannot be used together";
  if (choice.none) return repo::Config{};
  std::filesystem::path file = choice.file.value_or(std::string(repo::CONFIG_FILE_NAME));
  std::error_code error;
  if (!choice.file && !std::filesystem::exists(file, error)) return repo::Config{};
  auto read = repo::read_config(file, check::code_names());
  if (const auto* bad = std::get_if<repo::ConfigError>(&read)) return repo::describe(*bad);
  return std::get<repo::Config>(std::move(read));
}

void add(std::vector<std::string>& flags, const std::vector<std::string>& from_file) {
  flags.insert(flags.end(), from_file.begin(), from_file.end());
}

}  // namespace

std::optional<std::string> configure_index(const ConfigChoice& choice,
                                           repo::SelectionOptions& selection) {
  auto chosen = configuration(choice);
  if (const auto* error = std::get_if<std::string>(&chosen)) return *error;
  add(selection.excludes, std::get<repo::Config>(chosen).exclude);
  return std::nullopt;
}

std::optional<std::string> configure_check(const ConfigChoice& choice, check::CheckOptions& options,
                                           bool wiki_given) {
  auto chosen = configuration(choice);
  if (const auto* error = std::get_if<std::string>(&chosen)) return *error;
  const repo::Config& config = std::get<repo::Config>(chosen);
  for (const repo::ConfigString& code : config.ignore) {
    options.ignored.push_back(*check::code_named(code.value));  // validated when read
  }
  add(options.selection.excludes, config.exclude);
  add(options.accepted, config.accept);
  if (!wiki_given && config.wiki) options.wiki = *config.wiki;
  return std::nullopt;
}

}  // namespace tarnwick::cli
