#include "cli/records.hpp"

#include <nlohmann/json.hpp>

namespace tarnwick::cli {

namespace {

using Json = nlohmann::ordered_json;

template <typename T>
Json optional(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

std::string line_of(const Json& record) {
  // Paths come from the file system and may hold bytes that are not UTF-8.
  return record.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string symbol_record(const std::string& path, const Symbol& symbol) {
  return line_of(Json{{"type", "symbol"},
                      {"path", path},
                      {"file_id", symbol.file_id},
                      {"id", optional(symbol.id)},
                      {"name", symbol.name},
                      {"kind", symbol.kind},
                      {"fqn", symbol.fqn},
                      {"start_line", symbol.start_line},
                      {"end_line", symbol.end_line},
                      {"signature", symbol.signature},
                      {"is_export", symbol.is_export},
                      {"docstring", optional(symbol.docstring)}});
}

std::string reference_record(const std::string& path, std::int64_t file_id,
                             const engines::references::ReferenceInfo& reference) {
  return line_of(Json{{"type", "reference"},
                      {"path", path},
                      {"file_id", file_id},
                      {"name", reference.name},
                      {"qualifier", optional(reference.qualifier)},
                      {"kind", engines::references::to_string(reference.kind)},
                      {"line", reference.line},
                      {"source_fqn", optional(reference.source_fqn)}});
}

}  // namespace tarnwick::cli
