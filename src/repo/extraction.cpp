#include "repo/extraction.hpp"

#include <xxhash.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace tarnwick::repo {

namespace {

// The engine's debug line about a file, compiler-style: "path:line: message". The message is
// the engine's, except that the YAML loader's positions, which count from the front matter's
// body, count from the file (the body starts on its second line). A line with no position is
// about the front matter as a whole, which starts on the first line.
std::string debug_line(const SourceFile& file, std::string_view message) {
  constexpr std::string_view LINE = "line ", COLUMN = ", column ";
  constexpr int BODY_FIRST_LINE = 2;
  std::string text;
  long at_line = 1;
  std::size_t done = 0;
  for (std::size_t pos = message.find(LINE); pos != std::string_view::npos;
       pos = message.find(LINE, pos + 1)) {
    const std::size_t digits = pos + LINE.size();
    std::size_t end = digits;
    while (end < message.size() && message[end] >= '0' && message[end] <= '9') ++end;
    if (end == digits || message.substr(end, COLUMN.size()) != COLUMN) continue;
    at_line = std::stol(std::string(message.substr(digits, end - digits))) + BODY_FIRST_LINE - 1;
    text.append(message.substr(done, digits - done)).append(std::to_string(at_line));
    done = end;
  }
  text.append(message.substr(done));
  return file.location.string() + ":" + std::to_string(at_line) + ": " + text;
}

// A section starts on the first line only as a heading or as the front matter's title, and
// a heading cannot start on a line that is "---" or "+++", which opens front matter.
bool titled_by_front_matter(std::string_view bytes, const IndexedDocument& found) {
  if (found.symbols.empty() || found.symbols.front().start_line != 1) return false;
  std::string_view first = bytes.substr(0, bytes.find_first_of("\r\n"));
  while (first.ends_with(' ') || first.ends_with('\t')) first.remove_suffix(1);
  return first == "---" || first == "+++";
}

}  // namespace

ContentHash content_hash(std::string_view bytes) {
  const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
  return {hash.high64, hash.low64};
}

Extracted extract_file(const SourceFile& file, std::int64_t file_id, bool verbose,
                       const ParseFilter& parse_if) {
  Extracted extracted;
  extracted.file_id = file_id;
  std::string reason;
  const auto bytes = read_file(file.location, reason);
  if (!bytes) {
    extracted.error = ReadError{file.location.string(), reason};
    return extracted;
  }
  extracted.bytes = bytes->size();
  extracted.hash = content_hash(*bytes);
  if (parse_if && !parse_if(extracted.hash)) return extracted;
  tarnwick::IndexOptions options{.prefix = file.prefix, .file_id = file_id, .debug_log = {}};
  if (verbose) {
    options.debug_log = [&extracted, &file](std::string_view, std::string_view message) {
      extracted.debug_lines.push_back(debug_line(file, message));
    };
  }
  // A failure inside the engine must not end the whole run: it becomes that file's error.
  try {
    extracted.found = index_markdown(*bytes, file.path, options);
    extracted.parsed = true;
    extracted.titled_by_front_matter = titled_by_front_matter(*bytes, extracted.found);
  } catch (const std::length_error& too_large) {
    extracted.error = ReadError{file.location.string(), too_large.what()};
  } catch (const std::exception& failure) {
    extracted.error =
        ReadError{file.location.string(), std::string("internal error: ") + failure.what()};
  }
  return extracted;
}

namespace {

// Outputs finished while an earlier file is still being indexed wait in memory, up to this
// many bytes; past it the workers wait too. Enough that a long file seldom stalls the others,
// and a bound that does not grow with the number of files.
constexpr std::size_t MAX_WAITING_BYTES = 8 * 1024 * 1024;

// The memory a result holds while it waits.
std::size_t held_bytes(const Extracted& extracted) {
  std::size_t bytes = sizeof extracted;
  for (const Symbol& s : extracted.found.symbols) {
    bytes += sizeof s + s.name.size() + s.fqn.size() + s.signature.size() +
             (s.docstring ? s.docstring->size() : 0);
  }
  for (const auto& r : extracted.found.references) {
    bytes += sizeof r + r.name.size() + (r.qualifier ? r.qualifier->size() : 0) +
             (r.source_fqn ? r.source_fqn->size() : 0);
  }
  for (const auto& line : extracted.debug_lines) bytes += line.size();
  return bytes;
}

}  // namespace

void extract_in_order(const std::vector<SourceFile>& files, std::int64_t first_file_id,
                      unsigned jobs, bool verbose,
                      const std::function<bool(const SourceFile&, Extracted&&)>& emit,
                      const ParseFilter& parse_if) {
  if (jobs <= 1) {
    // One job needs no workers: the calling thread extracts and emits with no handoff.
    for (std::size_t index = 0; index < files.size(); ++index) {
      const auto file_id = first_file_id + static_cast<std::int64_t>(index);
      if (!emit(files[index], extract_file(files[index], file_id, verbose, parse_if))) return;
    }
    return;
  }
  std::mutex mutex;
  std::condition_variable ready, room;
  std::map<std::size_t, Extracted> finished;
  std::size_t next_to_take = 0, next_to_emit = 0, waiting_bytes = 0;

  const auto work = [&] {
    for (;;) {
      std::size_t index;
      {
        std::unique_lock lock(mutex);
        room.wait(lock, [&] {
          return next_to_take == files.size() || waiting_bytes < MAX_WAITING_BYTES;
        });
        if (next_to_take == files.size()) return;
        index = next_to_take++;
      }
      Extracted extracted = extract_file(
          files[index], first_file_id + static_cast<std::int64_t>(index), verbose, parse_if);
      bool is_next;
      {
        const std::lock_guard lock(mutex);
        waiting_bytes += held_bytes(extracted);
        finished.emplace(index, std::move(extracted));
        is_next = index == next_to_emit;
      }
      if (is_next) ready.notify_one();
    }
  };
  std::vector<std::jthread> workers;
  for (unsigned i = 0; i < std::min<std::size_t>(jobs, files.size()); ++i)
    workers.emplace_back(work);

  while (next_to_emit < files.size()) {
    Extracted extracted;
    {
      std::unique_lock lock(mutex);
      ready.wait(lock, [&] { return finished.contains(next_to_emit); });
      extracted = std::move(finished.extract(next_to_emit).mapped());
      waiting_bytes -= held_bytes(extracted);
      ++next_to_emit;
    }
    room.notify_all();
    if (!emit(files[next_to_emit - 1], std::move(extracted))) {
      // The workers finish the files they hold and take no more.
      const std::lock_guard lock(mutex);
      next_to_take = files.size();
      room.notify_all();
      return;
    }
  }
}

}  // namespace tarnwick::repo
