#define PCRE2_CODE_UNIT_WIDTH 8
#include "engines/markdown/regex.hpp"

#include <pcre2.h>

#include <memory>
#include <stdexcept>

#include "text/white_space.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {

namespace {

// Letters, characters with a numeric value, and the underscore.
constexpr std::string_view WORD_CLASS = "\\p{L}\\p{N}_";

// PCRE2's JIT code runs on a stack of its own: 32 KiB by default, which is all that almost every
// match needs. A match that needs more (long paragraphs of nested brackets) is run again on a
// larger stack of its thread, doubled each time up to MAX_JIT_STACK; only a thread that meets
// such text reserves the space.
constexpr std::size_t FIRST_JIT_STACK = 1024 * 1024;
constexpr std::size_t MAX_JIT_STACK = 512 * 1024 * 1024;

// Scratch space of one thread: match data, and the JIT stack once a match has needed one.
struct Scratch {
  Scratch()
      : data(pcre2_match_data_create(Match::MAX_GROUPS, nullptr)),
        context(pcre2_match_context_create(nullptr)) {
    if (!data || !context) throw std::bad_alloc();
    pcre2_set_match_limit(context, UINT32_MAX);
    pcre2_set_depth_limit(context, UINT32_MAX);
    pcre2_set_heap_limit(context, UINT32_MAX);
  }
  ~Scratch() {
    pcre2_match_context_free(context);
    pcre2_jit_stack_free(stack);
    pcre2_match_data_free(data);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  // Replaces the JIT stack by one twice as large; false when it has reached MAX_JIT_STACK.
  bool grow_stack() {
    const std::size_t size = stack_size == 0 ? FIRST_JIT_STACK : 2 * stack_size;
    if (size > MAX_JIT_STACK) return false;
    pcre2_jit_stack* larger = pcre2_jit_stack_create(32 * 1024, size, nullptr);
    if (!larger) throw std::bad_alloc();
    pcre2_jit_stack_free(stack);
    stack = larger;
    stack_size = size;
    pcre2_jit_stack_assign(context, nullptr, stack);
    return true;
  }

  pcre2_match_data* data;
  pcre2_match_context* context;
  pcre2_jit_stack* stack = nullptr;  // none until a match needs more than the default
  std::size_t stack_size = 0;
};

Scratch& scratch() {
  thread_local Scratch instance;
  return instance;
}

}  // namespace

std::string_view Match::group(std::string_view subject, int group) const {
  if (!has(group)) return {};
  return subject.substr(offsets_[2 * group], offsets_[2 * group + 1] - offsets_[2 * group]);
}

std::string spell_out_classes(std::string_view pattern) {
  static const std::string white_space = text::white_space_class();
  std::string out;
  bool in_class = false;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if (c == '\\' && i + 1 < pattern.size()) {
      const char escaped = pattern[++i];
      const std::string_view body = escaped == 'w' ? WORD_CLASS : white_space;
      if (escaped == 's' || escaped == 'w' || (escaped == 'S' && !in_class)) {
        if (!in_class) out.append(escaped == 'S' ? "[^" : "[");
        out.append(body);
        if (!in_class) out.push_back(']');
      } else if (escaped == 'S' || escaped == 'W' || escaped == 'd' || escaped == 'b') {
        throw std::logic_error("unsupported class in pattern: " + std::string(pattern));
      } else {
        out += c;
        out += escaped;
      }
      continue;
    }
    if (c == '[' && !in_class) {
      in_class = true;
      out += c;
      // A ']' or '^]' right after the opening bracket is a literal member.
      if (i + 1 < pattern.size() && pattern[i + 1] == '^') out += pattern[++i];
      if (i + 1 < pattern.size() && pattern[i + 1] == ']') out += pattern[++i];
      continue;
    }
    if (c == ']' && in_class) in_class = false;
    out += c;
  }
  return out;
}

const pcre2_real_code_8* Regex::compiled() const {
  std::call_once(compile_once_, [this] {
    const std::string spelled = spell_out_classes(build_ ? build_() : std::string(pattern_));
    std::uint32_t flags = PCRE2_UTF | PCRE2_NO_UTF_CHECK;
    if (options_ & DOTALL) flags |= PCRE2_DOTALL;
    std::unique_ptr<pcre2_compile_context, void (*)(pcre2_compile_context*)> context(
        pcre2_compile_context_create(nullptr), pcre2_compile_context_free);
    pcre2_set_newline(context.get(), PCRE2_NEWLINE_LF);
    int error = 0;
    PCRE2_SIZE offset = 0;
    code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(spelled.data()), spelled.size(), flags,
                          &error, &offset, context.get());
    if (!code_) {
      PCRE2_UCHAR message[256];
      pcre2_get_error_message(error, message, sizeof message);
      throw std::logic_error("bad pattern " + spelled + ": " + reinterpret_cast<char*>(message));
    }
    pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE);  // falls back to the interpreter if JIT fails
  });
  return code_;
}

Regex::~Regex() {
  pcre2_code_free(code_);
}

std::optional<Match> Regex::search(std::string_view subject, std::size_t start) const {
  Scratch& local = scratch();
  int rc;
  do {
    rc = pcre2_match(compiled(), reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(),
                     start, PCRE2_NO_UTF_CHECK, local.data, local.context);
  } while (rc == PCRE2_ERROR_JIT_STACKLIMIT && local.grow_stack());
  if (rc == PCRE2_ERROR_NOMATCH) return std::nullopt;
  if (rc < 0) {
    PCRE2_UCHAR message[256];
    pcre2_get_error_message(rc, message, sizeof message);
    throw std::runtime_error(std::string("regular expression failed: ") +
                             reinterpret_cast<char*>(message));
  }
  const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(local.data);
  const auto pairs =
      std::min<std::uint32_t>(pcre2_get_ovector_count(local.data), Match::MAX_GROUPS);
  Match found;
  found.offsets_.fill(Match::UNSET);
  for (std::uint32_t i = 0; i < 2 * pairs; ++i) found.offsets_[i] = ovector[i];
  return found;
}

std::string replace_all(const Regex& pattern, std::string_view text, int group) {
  std::string out;
  std::size_t done = 0;
  while (const auto found = pattern.search(text, done)) {
    out.append(text.substr(done, found->start() - done));
    if (group >= 0) out.append(found->group(text, group));
    if (found->end() == found->start()) {
      throw std::logic_error("replace_all needs a pattern that never matches the empty text");
    }
    done = found->end();
  }
  out.append(text.substr(done));
  return out;
}

}  // namespace tarnwick::engines::markdown::detail
