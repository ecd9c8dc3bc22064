#include "app/model/FieldValue.hpp"

#include <sstream>

namespace tavorin {

std::string FieldValue::display() const {
  if (const auto* t = text()) return *t;
  if (const auto* b = truth()) return *b ? "1" : "0";
  if (const auto* n = number()) {
    std::ostringstream out;
    out << *n;
    return out.str();
  }
  return {};
}

}  // namespace tavorin
