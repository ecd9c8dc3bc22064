#pragma once
#include <optional>
#include <string>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// What changed between two versions of a production, in the timeline's own terms,
// and what one edit is called in the undo menu.
namespace Diff {

struct Change {
  enum class Kind { retimed, revoiced, rerated, regained, added, removed, retexted, retrimmed, rendered, unrendered };
  Kind kind = Kind::added;
  // retimed, rerated and regained carry the numbers; revoiced the voices.
  double from = 0;
  double to = 0;
  std::optional<std::string> fromVoice;
  std::optional<std::string> toVoice;

  static Change of(Kind kind) { return {kind, 0, 0, std::nullopt, std::nullopt}; }
  static Change retimed(double from, double to) { return {Kind::retimed, from, to, std::nullopt, std::nullopt}; }
  static Change rerated(double from, double to) { return {Kind::rerated, from, to, std::nullopt, std::nullopt}; }
  static Change regained(double from, double to) { return {Kind::regained, from, to, std::nullopt, std::nullopt}; }
  static Change revoiced(std::optional<std::string> from, std::optional<std::string> to) {
    return {Kind::revoiced, 0, 0, std::move(from), std::move(to)};
  }
  bool operator==(const Change&) const = default;
};

struct ItemChange {
  std::string id;
  ItemType type = ItemType::line;
  std::vector<Change> changes;

  bool has(Change::Kind kind) const;
  bool operator==(const ItemChange&) const = default;
};

struct Result {
  std::vector<ItemChange> items;        // sorted by id
  std::vector<std::string> production;  // finished sentences about the whole production
  bool blockingChanged = false;

  bool isEmpty() const { return items.empty() && production.empty() && !blockingChanged; }
  // One line: "2 retexted · 1 added · title: A → B", or "no changes".
  std::string summary() const;
};

// Whether the two script texts differ is the caller's to say: the script lives
// outside the document.
Result between(const Recording& before, const Recording& after, bool blockingChanged = false);

// Two or three words for the undo menu: "the move", "the paste", "the look".
std::string name(const Recording& before, const Recording& after);

// "cut: 3 → 4", or "zooms: 3 changed" when the counts are equal.
std::string spanLine(const std::string& label, std::size_t before, std::size_t after);

}  // namespace Diff
}  // namespace tavorin
