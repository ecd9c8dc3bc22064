#pragma once
#include <string_view>
#include <vector>

namespace tavorin {

// The verb table's files as the build embedded them from src/operator/verbs: one
// JSON file per group, and the names in the order the client prints them.
struct VerbTableData {
  struct File {
    std::string_view name;  // "nav.json"
    std::string_view text;
  };
  static const std::string_view order;
  static const std::vector<File> groups;
};

}  // namespace tavorin
