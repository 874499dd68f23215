// The records are written straight into the output text: building a JSON document for each
// record took more time than the engine's links.
#include "repo/records.hpp"

#include <charconv>
#include <optional>
#include <string_view>

#include "text/json.hpp"

namespace tarnwick::repo {

namespace {

void append_number(std::string& out, std::int64_t number) {
  char digits[24];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  out.append(digits, end);
}

// The fields of one record, in order, on one line.
class Record {
 public:
  Record(std::string& out, std::string_view type) : out_(out) {
    out_ += R"({"type":")";
    out_ += type;
    out_ += '"';
  }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record() { out_ += "}\n"; }

  void text(std::string_view name, std::string_view value) {
    key(name);
    text::append_json_string(out_, value);
  }
  void text_or_null(std::string_view name, const std::optional<std::string>& value) {
    if (value) return text(name, *value);
    null(name);
  }
  void number(std::string_view name, std::int64_t value) {
    key(name);
    append_number(out_, value);
  }
  void number_or_null(std::string_view name, std::optional<std::int64_t> value) {
    if (value) return number(name, *value);
    null(name);
  }
  void boolean(std::string_view name, bool value) {
    key(name);
    out_ += value ? "true" : "false";
  }

 private:
  // Keys and types are this file's own literals, which need no escaping.
  void key(std::string_view name) {
    out_ += ",\"";
    out_ += name;
    out_ += "\":";
  }
  void null(std::string_view name) {
    key(name);
    out_ += "null";
  }

  std::string& out_;
};

}  // namespace

void append_symbol_record(std::string& out, const std::string& path, const Symbol& symbol) {
  Record record(out, "symbol");
  record.text("path", path);
  record.number("file_id", symbol.file_id);
  record.number_or_null("id", symbol.id);
  record.text("name", symbol.name);
  record.text("kind", symbol.kind);
  record.text("fqn", symbol.fqn);
  record.number("start_line", symbol.start_line);
  record.number("end_line", symbol.end_line);
  record.text("signature", symbol.signature);
  record.boolean("is_export", symbol.is_export);
  record.text_or_null("docstring", symbol.docstring);
}

void append_reference_record(std::string& out, const std::string& path, std::int64_t file_id,
                             const engines::references::ReferenceInfo& reference) {
  Record record(out, "reference");
  record.text("path", path);
  record.number("file_id", file_id);
  record.text("name", reference.name);
  record.text_or_null("qualifier", reference.qualifier);
  record.text("kind", engines::references::to_string(reference.kind));
  record.number("line", reference.line);
  record.text_or_null("source_fqn", reference.source_fqn);
}

void append_records(std::string& out, const std::string& path, std::int64_t file_id,
                    const IndexedDocument& document) {
  for (const auto& symbol : document.symbols) append_symbol_record(out, path, symbol);
  for (const auto& reference : document.references) {
    append_reference_record(out, path, file_id, reference);
  }
}

}  // namespace tarnwick::repo
