// How the whole pipeline (parse, sections, links) grows on hostile documents of 1, 2, 4 and
// 8 MB: every curve should be close to linear, so the time per megabyte stays flat.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "tarnwick/markdown.hpp"

namespace {

using namespace tarnwick;

constexpr std::size_t MEGABYTE = std::size_t{1} << 20;

std::string repeated_to(std::string text, std::string_view unit, std::size_t size) {
  while (text.size() < size) text += unit;
  return text;
}

// A paragraph below a heading that starts with a link, then one long run of `unit`.
std::string paragraph_of(std::string_view unit, std::size_t size) {
  return repeated_to("# Top\nSee [a](b.md) ", unit, size) + "\n";
}

std::string headings(std::size_t size) {
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) {
    text += "## Heading " + std::to_string(i % 100) + "\nSee [x](y" + std::to_string(i) + ".md).\n";
  }
  return text;
}

std::string one_line(std::size_t size) {
  return repeated_to("# Top\n", "word [x](y.md) ", size) + "\n";
}

// Block quotes nested `depth` deep on one line. The parser holds every level of the nesting,
// which costs it about 1.4 KB a level, so depth rather than megabytes is what grows here.
std::string deep_quote(std::size_t depth) {
  return std::string(depth, '>') + " [a](b.md)\n";
}

std::string noise(std::size_t size) {
  std::mt19937 random(7);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random() % 256);
  return text;
}

void index_document(benchmark::State& state, const std::string& text) {
  MarkdownParser parser;
  for (auto _ : state) {
    const Document document(parser, text);
    benchmark::DoNotOptimize(tarnwick::index_document(document, "README", 1));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

template <typename Make>
void hostile(benchmark::State& state, Make make) {
  index_document(state, make(static_cast<std::size_t>(state.range(0)) * MEGABYTE));
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(1)
      ->Arg(2)
      ->Arg(4)
      ->Arg(8)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1)
      ->Repetitions(3)
      ->ReportAggregatesOnly(true);
}

#define HOSTILE_PARAGRAPH(name, unit)                     \
  BENCHMARK_CAPTURE(hostile, name, [](std::size_t size) { \
    return paragraph_of(unit, size);                      \
  })->Apply(sizes)

HOSTILE_PARAGRAPH(prose, "Some prose with a [link](docs/guide.md#x), `code` and [[Wiki]]. ");
HOSTILE_PARAGRAPH(brackets, "[");
HOSTILE_PARAGRAPH(backticks, "`");
HOSTILE_PARAGRAPH(stars, "*");
HOSTILE_PARAGRAPH(underscores, "_");
HOSTILE_PARAGRAPH(tildes, "~");
HOSTILE_PARAGRAPH(wiki_openers, "[[");
HOSTILE_PARAGRAPH(link_openers, "](");
HOSTILE_PARAGRAPH(parentheses, "(");
BENCHMARK_CAPTURE(hostile, headings, headings)->Apply(sizes);
BENCHMARK_CAPTURE(hostile, one_line, one_line)->Apply(sizes);
BENCHMARK_CAPTURE(hostile, noise, noise)->Apply(sizes);

void deep_quotes(benchmark::State& state) {
  index_document(state, deep_quote(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(deep_quotes)
    ->Arg(10000)
    ->Arg(20000)
    ->Arg(40000)
    ->Arg(80000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
