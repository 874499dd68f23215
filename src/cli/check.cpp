#include "cli/check.hpp"

#include <map>
#include <ostream>

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

}  // namespace

int run_check(const check::CheckOptions& options, std::ostream& out, std::ostream& err) {
  const check::CheckResult result = check::find_problems(options);
  for (const std::string& error : result.errors) err << "tarnwick-md: " << error << "\n";
  if (result.stopped) {
    err << "tarnwick-md: " << *result.stopped << "\n";
    return 2;
  }
  const std::vector<check::Problem>& reported = result.problems;
  const std::size_t files = result.files, links = result.links;
  out << check::format_problems(reported, options.format);
  if (!flushed(out, err)) return 2;

  std::map<std::string_view, std::size_t> by_code;
  for (const check::Problem& problem : reported) ++by_code[check::info(problem.code).name];
  err << "tarnwick-md: " << with_thousands(files) << (files == 1 ? " file, " : " files, ")
      << with_thousands(links) << (links == 1 ? " link" : " links") << " checked: ";
  if (reported.empty()) {
    err << "no problems\n";
  } else {
    err << with_thousands(reported.size()) << (reported.size() == 1 ? " problem (" : " problems (");
    for (auto it = by_code.begin(); it != by_code.end(); ++it) {
      err << (it == by_code.begin() ? "" : ", ") << it->second << " " << it->first;
    }
    err << ")\n";
  }
  if (!result.errors.empty()) return 2;
  return reported.empty() ? 0 : 1;
}

}  // namespace tarnwick::cli
