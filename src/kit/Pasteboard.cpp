#include "kit/Pasteboard.hpp"

namespace tavorin {

std::optional<std::string> MemoryPasteboard::read(std::string_view type) const {
  auto found = held_.find(type);
  if (found == held_.end()) return std::nullopt;
  return found->second;
}

void MemoryPasteboard::write(std::string_view type, std::string text) {
  held_.clear();
  held_.emplace(std::string(type), std::move(text));
}

}  // namespace tavorin
