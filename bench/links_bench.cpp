// How the link scan and the section lookup grow: a megabyte paragraph of hostile characters
// against a megabyte of ordinary prose, and documents with tens of thousands of sections.
#include <benchmark/benchmark.h>

#include <string>

#include "engines/markdown/links.hpp"
#include "tarnwick/tree.hpp"

namespace {

namespace markdown = tarnwick::engines::markdown;

constexpr std::size_t MEGABYTE = std::size_t{1} << 20;

// A paragraph that starts with a link, so that the quick test lets the whole text be scanned.
std::string paragraph_of(std::string_view unit) {
  std::string text = "[start](start.md) ";
  while (text.size() < MEGABYTE) text += unit;
  return text;
}

// Backtick runs of rising lengths, none closed: the worst case of the code span pattern.
std::string rising_backtick_runs() {
  std::string text = "[start](start.md) ";
  for (std::size_t length = 1; text.size() < MEGABYTE; ++length) {
    text.append(length, '`');
    text += ' ';
  }
  return text;
}

void scan(benchmark::State& state, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(markdown::detail::inline_targets(text, 1));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_ScanProse(benchmark::State& state) {
  scan(state, paragraph_of("Some prose with a [link](docs/guide.md#x), `code` and [[Wiki]].\n"));
}
void BM_ScanBrackets(benchmark::State& state) {
  scan(state, paragraph_of("["));
}
void BM_ScanBackticks(benchmark::State& state) {
  scan(state, paragraph_of("`"));
}
void BM_ScanRisingBacktickRuns(benchmark::State& state) {
  scan(state, rising_backtick_runs());
}
void BM_ScanParentheses(benchmark::State& state) {
  scan(state, paragraph_of("("));
}
void BM_ScanWikiOpeners(benchmark::State& state) {
  scan(state, paragraph_of("[["));
}
void BM_ScanBracketParentheses(benchmark::State& state) {
  scan(state, paragraph_of("]("));
}
void BM_ScanUnclosedLinks(benchmark::State& state) {
  scan(state, paragraph_of("[a](b \""));
}

BENCHMARK(BM_ScanProse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanBrackets)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanBackticks)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanRisingBacktickRuns)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanParentheses)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanWikiOpeners)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanBracketParentheses)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanUnclosedLinks)->Unit(benchmark::kMillisecond);

// A document of `count` sections, every tenth an H1 over nine H2s, each holding one link.
std::string sectioned_document(std::int64_t count) {
  std::string text;
  for (std::int64_t i = 0; i < count; ++i) {
    text += i % 10 == 0 ? "# Part " : "## Topic ";
    text += std::to_string(i) + "\n\nSee [file](file" + std::to_string(i) + ".md).\n\n";
  }
  return text;
}

// extract_links over a parsed document of n sections and n links; the tree and the sections
// are built once, outside the timing.
void BM_ExtractLinks(benchmark::State& state) {
  tarnwick::MarkdownParser parser;
  const tarnwick::Document document(parser, sectioned_document(state.range(0)));
  const markdown::IndexerRules rules{.unique_fqn = [](const std::string& fqn) { return fqn; },
                                     .cap_docstring = [](const std::string& text) { return text; },
                                     .debug_log = {}};
  const auto sections =
      markdown::extract_sections(document.root(), document.text(), "README", 1, rules);
  for (auto _ : state) benchmark::DoNotOptimize(markdown::extract_links(document.root(), sections));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ExtractLinks)
    ->Arg(12500)
    ->Arg(25000)
    ->Arg(50000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

// n lookups, one per section's first line, among n nested sections.
void BM_SectionLookups(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  std::vector<tarnwick::Symbol> sections(static_cast<std::size_t>(count));
  for (std::int64_t i = 0; i < count; ++i) {
    auto& section = sections[static_cast<std::size_t>(i)];
    section.fqn = "README.S" + std::to_string(i);
    section.start_line = 2 * i + 1;
    section.end_line = i % 10 == 0 ? 2 * (i + 10) : 2 * i + 2;
  }
  for (auto _ : state) {
    const auto index = markdown::detail::section_index(sections);
    for (std::int64_t line = 1; line <= 2 * count; line += 2) {
      benchmark::DoNotOptimize(markdown::detail::section_at(index, line));
    }
  }
  state.SetComplexityN(count);
}
BENCHMARK(BM_SectionLookups)
    ->Arg(12500)
    ->Arg(25000)
    ->Arg(50000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

}  // namespace
