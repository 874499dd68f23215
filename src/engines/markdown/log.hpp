// The engine's logger: debug lines handed to the host's logging facility, if it gave one.
#pragma once

#include <string_view>

#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

class Logger {
 public:
  explicit Logger(const IndexerRules& rules) : sink_(&rules.debug_log) {}
  bool enabled() const { return static_cast<bool>(*sink_); }
  void debug(std::string_view message) const {
    if (enabled()) (*sink_)(LOGGER_NAME, message);
  }

 private:
  const std::function<void(std::string_view, std::string_view)>* sink_;
};

}  // namespace tarnwick::engines::markdown::detail
