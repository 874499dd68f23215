// The Markdown engine's costs over a whole corpus, on the same files: the tree-sitter parse
// floor, the engine alone on parsed trees, and the whole `tarnwick-md index` command at -j 1
// and -j 2. Every benchmark is one pass over the corpus. The four run in turn, round after
// round (--rounds=N, default 5); each ratio is taken within a round, so that a machine whose
// speed drifts weighs on both of its terms alike, and the summary shows the medians.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "cli/index.hpp"
#include "corpus_files.hpp"
#include "tarnwick/markdown.hpp"

extern char** environ;

namespace {

using tarnwick::bench::Corpus;

constexpr double MB = 1e6;

// The running command's memory, sampled this often to show how it changes along the corpus.
constexpr auto SAMPLE_INTERVAL = std::chrono::milliseconds(20);

std::string corpus_directory;
Corpus corpus;

void set_corpus_bytes(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(corpus.bytes));
}

// Parsing and freeing the tree, as the command does for every file.
void parse_floor(benchmark::State& state) {
  tarnwick::MarkdownParser parser;
  for (auto _ : state) {
    for (const auto& file : corpus.files) ts_tree_delete(parser.parse(file.text));
  }
  set_corpus_bytes(state);
}

// The engine on each tree right after its parse, as the command runs it: only the engine is
// timed.
void engine(benchmark::State& state) {
  tarnwick::MarkdownParser parser;
  for (auto _ : state) {
    std::chrono::steady_clock::duration spent{};
    for (std::size_t i = 0; i < corpus.files.size(); ++i) {
      const tarnwick::Document document(parser, corpus.files[i].text);
      const auto start = std::chrono::steady_clock::now();
      benchmark::DoNotOptimize(tarnwick::index_document(document, corpus.files[i].prefix,
                                                        static_cast<std::int64_t>(i) + 1));
      spent += std::chrono::steady_clock::now() - start;
    }
    state.SetIterationTime(std::chrono::duration<double>(spent).count());
  }
  set_corpus_bytes(state);
}

// Starts `tarnwick-md index -j JOBS` over the corpus with its output sent to /dev/null.
pid_t start_index(unsigned jobs) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const std::string jobs_text = std::to_string(jobs);
  const char* argv[] = {TARNWICK_MD, "index", "-j", jobs_text.c_str(), corpus_directory.c_str(),
                        nullptr};
  pid_t pid = 0;
  const int error =
      posix_spawn(&pid, TARNWICK_MD, &actions, nullptr, const_cast<char**>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " TARNWICK_MD);
  return pid;
}

// Whether the command has ended, waiting for it if asked; throws if it failed.
bool has_ended(pid_t pid, bool wait) {
  int status = 0;
  const pid_t ended = waitpid(pid, &status, wait ? 0 : WNOHANG);
  if (ended == 0) return false;
  if (ended != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(TARNWICK_MD " index failed");
  }
  return true;
}

void index_command(benchmark::State& state, unsigned jobs) {
  for (auto _ : state) has_ended(start_index(jobs), true);
  set_corpus_bytes(state);
}

struct MemorySample {
  long resident_kib = 0;
  long peak_kib = 0;
};

// What /proc says of a running process; zeros once it has ended.
MemorySample sample_memory(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  MemorySample sample;
  for (std::string field; status >> field;) {
    if (field == "VmRSS:") status >> sample.resident_kib;
    if (field == "VmHWM:") status >> sample.peak_kib;
  }
  return sample;
}

// The memory that one run of the command holds: its peak, and the largest resident size in each
// quarter of the run, which shows whether it grows along the corpus. It is sampled because the
// peak that wait4 reports also counts this process's memory, which the child starts from.
struct MemoryProfile {
  long peak_kib = 0;
  std::vector<long> quarter_peaks_kib;
};

MemoryProfile profile_memory(unsigned jobs) {
  const pid_t pid = start_index(jobs);
  MemoryProfile profile;
  std::vector<long> resident;
  while (!has_ended(pid, false)) {
    const MemorySample sample = sample_memory(pid);
    resident.push_back(sample.resident_kib);
    profile.peak_kib = std::max(profile.peak_kib, sample.peak_kib);
    std::this_thread::sleep_for(SAMPLE_INTERVAL);
  }
  for (std::size_t quarter = 0; quarter < 4; ++quarter) {
    const auto first = resident.begin() + resident.size() * quarter / 4;
    const auto last = resident.begin() + resident.size() * (quarter + 1) / 4;
    profile.quarter_peaks_kib.push_back(first == last ? 0 : *std::max_element(first, last));
  }
  return profile;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The time of every pass of one benchmark, a pass a round.
struct Passes {
  std::vector<double> seconds;

  double mb_per_second() const { return static_cast<double>(corpus.bytes) / MB / median(seconds); }
};

// The median over the rounds of a round's `numerator` time over its `denominator` time.
double median_ratio(const Passes& numerator, const Passes& denominator) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < std::min(numerator.seconds.size(), denominator.seconds.size()); ++i) {
    ratios.push_back(numerator.seconds[i] / denominator.seconds[i]);
  }
  return median(ratios);
}

// Shows the usual table, its header once, and keeps every pass for the summary.
class PassReporter : public benchmark::ConsoleReporter {
 public:
  PassReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

  bool ReportContext(const Context& context) override {
    if (reported_context_) return true;
    reported_context_ = true;
    return ConsoleReporter::ReportContext(context);
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      // The benchmarks report in seconds.
      passes[run.run_name.function_name].seconds.push_back(run.GetAdjustedRealTime());
    }
    ConsoleReporter::ReportRuns(runs);
  }

  std::map<std::string, Passes> passes;

 private:
  bool reported_context_ = false;
};

double mib(long kib) {
  return static_cast<double>(kib) / 1024;
}

const Passes* find(const std::map<std::string, Passes>& passes, const std::string& name) {
  const auto found = passes.find(name);
  return found == passes.end() ? nullptr : &found->second;
}

void print_target(const char* target, double value, bool met) {
  std::printf("target %-34s %6.2f  %s\n", target, value, met ? "met" : "MISSED");
}

// A run of the command of its own, to show its memory.
void print_memory(unsigned jobs) {
  const MemoryProfile memory = profile_memory(jobs);
  std::printf("  peak memory %.1f MiB; largest resident size by quarter of the run:",
              mib(memory.peak_kib));
  for (const long kib : memory.quarter_peaks_kib) std::printf(" %.1f", mib(kib));
  std::printf(" MiB\n");
}

// The figures of the benchmarks that ran, their ratios, and the targets that they decide.
void print_summary(const std::map<std::string, Passes>& passes, int rounds) {
  const Passes* parse = find(passes, "parse_floor");
  const Passes* eng = find(passes, "engine");
  const Passes* j1 = find(passes, "index_j1");
  const Passes* j2 = find(passes, "index_j2");
  std::printf(
      "\n%zu files, %.2f MB (MB = 10^6 bytes); medians over %d rounds, ratios within each\n",
      corpus.files.size(), static_cast<double>(corpus.bytes) / MB, rounds);
  if (parse) std::printf("parse floor (tree-sitter alone) %7.2f MB/s\n", parse->mb_per_second());
  if (eng) {
    std::printf("engine on parsed trees          %7.2f MB/s", eng->mb_per_second());
    if (parse) std::printf(", %.1f%% of parse time", 100 * median_ratio(*eng, *parse));
    std::printf("\n");
  }
  for (const auto& [command, jobs] : {std::pair{j1, 1u}, std::pair{j2, 2u}}) {
    if (!command) continue;
    std::printf("tarnwick-md index -j %u          %7.2f MB/s", jobs, command->mb_per_second());
    if (parse) std::printf(", %.2f x parse floor", median_ratio(*parse, *command));
    std::printf("\n");
    print_memory(jobs);
  }
  if (eng && parse) {
    const double share = 100 * median_ratio(*eng, *parse);
    print_target("engine <= 10% of parse time (%)", share, share <= 10);
  }
  if (j1 && parse) {
    const double ratio = median_ratio(*parse, *j1);
    print_target("-j 1 >= 0.85 x parse floor", ratio, ratio >= 0.85);
  }
  if (j1 && j2) {
    const double speedup = median_ratio(*j1, *j2);
    print_target("-j 2 >= 1.7 x -j 1", speedup, speedup >= 1.7);
  }
}

void register_benchmarks() {
  const auto one_pass = [](benchmark::internal::Benchmark* b) {
    return b->Unit(benchmark::kSecond)->Iterations(1);
  };
  one_pass(benchmark::RegisterBenchmark("parse_floor", parse_floor))->UseRealTime();
  one_pass(benchmark::RegisterBenchmark("engine", engine))->UseManualTime();
  one_pass(benchmark::RegisterBenchmark("index_j1", index_command, 1u))->UseRealTime();
  one_pass(benchmark::RegisterBenchmark("index_j2", index_command, 2u))->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  int rounds = 5;
  if (argc == 3 && std::sscanf(argv[1], "--rounds=%d", &rounds) == 1 && rounds > 0) {
    argv[1] = argv[2];
    --argc;
  }
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s [benchmark options] [--rounds=N] CORPUS_DIRECTORY\n", argv[0]);
    return 2;
  }
  try {
    corpus_directory = argv[1];
    corpus = tarnwick::bench::load_corpus(corpus_directory);
    register_benchmarks();
    PassReporter reporter;
    for (int round = 0; round < rounds; ++round) benchmark::RunSpecifiedBenchmarks(&reporter);
    print_summary(reporter.passes, rounds);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}
