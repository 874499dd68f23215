#include "cli/check.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <ostream>
#include <variant>

#include "check/baseline.hpp"
#include "cli/output.hpp"

namespace tarnwick::cli {

namespace {

std::string with_thousands(std::size_t number) {
  const std::string digits = std::to_string(number);
  std::string grouped;
  for (std::size_t at = 0; at < digits.size(); ++at) {
    if (at > 0 && (digits.size() - at) % 3 == 0) grouped += ',';
    grouped += digits[at];
  }
  return grouped;
}

// "3 problems (1 missing-file, 2 site-path)", or with an adjective "3 new problems (...)".
std::string counted(const std::vector<const check::Problem*>& problems,
                    std::string_view adjective) {
  std::map<std::string_view, std::size_t> by_code;
  for (const check::Problem* problem : problems) ++by_code[check::info(problem->code).name];
  std::string text = with_thousands(problems.size()) + std::string(adjective) +
                     (problems.size() == 1 ? " problem (" : " problems (");
  for (auto it = by_code.begin(); it != by_code.end(); ++it) {
    text += (it == by_code.begin() ? "" : ", ") + std::to_string(it->second) + " ";
    text += it->first;
  }
  return text + ")";
}

int write_baseline(const std::string& file, const check::CheckResult& result, std::ostream& err) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << check::baseline_text(result.problems);
  out.close();
  if (!out) {
    err << "tarnwick-md: cannot write the baseline " << file << ": " << std::strerror(errno)
        << "\n";
    return 2;
  }
  err << "tarnwick-md: " << with_thousands(result.files)
      << (result.files == 1 ? " file, " : " files, ") << with_thousands(result.links)
      << (result.links == 1 ? " link" : " links")
      << " checked: " << with_thousands(result.problems.size())
      << (result.problems.size() == 1 ? " problem" : " problems") << " written to " << file
      << " as known\n";
  return result.errors.empty() ? 0 : 2;
}

}  // namespace

int run_check(const check::CheckOptions& options, const BaselineFiles& baseline, std::ostream& out,
              std::ostream& err) {
  std::optional<check::Baseline> known;
  if (baseline.compare_with) {
    auto read = check::read_baseline(*baseline.compare_with);
    if (const auto* error = std::get_if<std::string>(&read)) {
      err << "tarnwick-md: " << *error << "\n";
      return 2;
    }
    known = std::get<check::Baseline>(std::move(read));
  }
  check::CheckResult result = check::find_problems(options);
  for (const std::string& error : result.errors) err << "tarnwick-md: " << error << "\n";
  if (result.stopped) {
    err << "tarnwick-md: " << *result.stopped << "\n";
    return 2;
  }
  if (baseline.write_to) return write_baseline(*baseline.write_to, result, err);

  std::size_t fixed = 0;
  if (known) fixed = check::compare_with_baseline(result.problems, std::move(*known));
  std::vector<const check::Problem*> failing;
  for (const check::Problem& problem : result.problems) {
    if (problem.baseline != check::BaselineState::unchanged) failing.push_back(&problem);
  }
  // With a baseline only the new problems are reported; SARIF shows the known ones as such.
  if (known && options.format != check::Format::sarif) {
    std::vector<check::Problem> fresh;
    for (const check::Problem* problem : failing) fresh.push_back(*problem);
    out << check::format_problems(fresh, options.format);
  } else {
    out << check::format_problems(result.problems, options.format);
  }
  if (!flushed(out, err)) return 2;

  const std::size_t files = result.files, links = result.links;
  err << "tarnwick-md: " << with_thousands(files) << (files == 1 ? " file, " : " files, ")
      << with_thousands(links) << (links == 1 ? " link" : " links") << " checked: ";
  const std::string_view adjective = known ? " new" : "";
  if (failing.empty()) {
    err << "no" << adjective << " problems";
  } else {
    err << counted(failing, adjective);
  }
  if (known) {
    err << "; " << with_thousands(result.problems.size() - failing.size()) << " known, "
        << with_thousands(fixed) << " fixed";
  }
  err << "\n";
  if (!result.errors.empty()) return 2;
  return failing.empty() ? 0 : 1;
}

}  // namespace tarnwick::cli
