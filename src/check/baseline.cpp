#include "check/baseline.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "repo/selection.hpp"
#include "text/json.hpp"

namespace tarnwick::check {

ProblemKey key_of(const Problem& problem) {
  return {problem.file, std::string(info(problem.code).name), problem.target};
}

std::string baseline_text(const std::vector<Problem>& problems) {
  std::vector<ProblemKey> keys;
  keys.reserve(problems.size());
  for (const Problem& problem : problems) keys.push_back(key_of(problem));
  std::sort(keys.begin(), keys.end());
  std::string text = "{\"version\":1,\"problems\":[";
  for (const auto& [path, code, target] : keys) {
    text += &path == &std::get<0>(keys.front()) ? "\n" : ",\n";
    text += "{\"path\":";
    text::append_json_string(text, path);
    text += ",\"code\":";
    text::append_json_string(text, code);
    text += ",\"target\":";
    text::append_json_string(text, target);
    text += "}";
  }
  text += "\n]}\n";
  return text;
}

std::variant<Baseline, std::string> read_baseline(const std::filesystem::path& file) {
  const std::string name = file.string();
  std::string reason;
  const std::optional<std::string> text = repo::read_file(file, reason);
  if (!text) return "cannot read the baseline " + name + ": " + reason;
  const nlohmann::json json = nlohmann::json::parse(*text, nullptr, false);
  const auto not_a_baseline = [&](const std::string& why) {
    return name + " is not a baseline written by --write-baseline: " + why;
  };
  if (json.is_discarded()) return not_a_baseline("it is not JSON");
  if (!json.is_object() || !json.contains("problems") || !json["problems"].is_array()) {
    return not_a_baseline("it has no \"problems\" array");
  }
  Baseline baseline;
  for (const nlohmann::json& problem : json["problems"]) {
    const auto field = [&](const char* key) -> const std::string* {
      if (!problem.is_object() || !problem.contains(key) || !problem[key].is_string()) {
        return nullptr;
      }
      return problem[key].get_ptr<const std::string*>();
    };
    const std::string* path = field("path");
    const std::string* code = field("code");
    const std::string* target = field("target");
    if (!path || !code || !target) {
      return not_a_baseline("a problem lacks its \"path\", \"code\" or \"target\" string");
    }
    ++baseline[{*path, *code, *target}];
  }
  return baseline;
}

std::size_t compare_with_baseline(std::vector<Problem>& problems, Baseline baseline) {
  for (Problem& problem : problems) {
    const auto known = baseline.find(key_of(problem));
    if (known != baseline.end() && known->second > 0) {
      --known->second;
      problem.baseline = BaselineState::unchanged;
    } else {
      problem.baseline = BaselineState::new_problem;
    }
  }
  std::size_t fixed = 0;
  for (const auto& [key, left] : baseline) fixed += left;
  return fixed;
}

}  // namespace tarnwick::check
