#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "kit/BlockingDiagnostic.hpp"
#include "kit/Recording.hpp"

namespace tavorin {

// The stage script: what happens on the desktop while the camera rolls.
// Reading a script never fails; what cannot be read becomes an `Unknown` step,
// which the diagnostics report and the runner skips.
namespace Blocking {

inline constexpr double defaultAgentTimeout = 600;

// The class of a step on the timeline, in glyph order.
enum class Mark { app, open, click, move, scroll, type, key, wait, hold, js, agent, cue, unknown };

// The mark's text form: its case name.
std::string_view name(Mark mark);

// A step that hands the desktop to an agent.
struct AgentCall {
  std::string prompt;
  double timeout = defaultAgentTimeout;  // seconds
  std::optional<std::string> model;
  std::optional<std::string> effort;
  std::optional<std::string> rules;
  bool operator==(const AgentCall&) const = default;
};

// What a step does, with what it needs to do it.
struct Kind {
  struct App { std::string name; bool operator==(const App&) const = default; };
  struct Open { std::string target; bool operator==(const Open&) const = default; };
  struct Click { double x = 0, y = 0; bool operator==(const Click&) const = default; };
  struct Scroll {
    double px = 0;
    std::optional<double> over;
    bool operator==(const Scroll&) const = default;
  };
  struct Move {
    double x = 0, y = 0;
    std::optional<double> over;
    bool operator==(const Move&) const = default;
  };
  struct Type { std::string text; bool operator==(const Type&) const = default; };
  struct Key { std::string combo; bool operator==(const Key&) const = default; };  // as written
  struct Wait { double seconds = 0; bool operator==(const Wait&) const = default; };
  struct Hold { double seconds = 0; bool operator==(const Hold&) const = default; };
  struct Js { std::string script; bool operator==(const Js&) const = default; };
  using Agent = AgentCall;
  struct Cue { std::string name; bool operator==(const Cue&) const = default; };
  struct AnchorHeader { bool operator==(const AnchorHeader&) const = default; };
  struct Unknown { bool operator==(const Unknown&) const = default; };

  using Value = std::variant<App, Open, Click, Scroll, Move, Type, Key, Wait, Hold, Js, Agent, Cue,
                             AnchorHeader, Unknown>;
  Value value = Unknown{};

  Kind() = default;
  template <class T, class = std::enable_if_t<!std::is_same_v<std::decay_t<T>, Kind>>>
  Kind(T&& payload) : value(std::forward<T>(payload)) {}

  template <class T>
  bool is() const { return std::holds_alternative<T>(value); }
  template <class T>
  const T* as() const { return std::get_if<T>(&value); }

  Mark mark() const;
  bool operator==(const Kind&) const = default;
};

// One line of the script with content.
struct Step {
  int id = 0;           // from 1, counting every line with content, headers included
  bool indent = false;  // began with a blank or a tab; never set on headers
  std::optional<Anchor> anchor;  // the anchor in force
  Kind kind;
  std::string raw;      // without comment and surrounding blanks
  int sourceLine = 0;   // 1-based
  std::optional<std::string> cue;  // the cue section the step lies in
  bool operator==(const Step&) const = default;
};

struct Word {
  std::string text;
  bool quoted = false;
  bool operator==(const Word&) const = default;
};

std::vector<Step> parse(std::string_view source);

// The kind of one trimmed line that is neither a cue nor an anchor header.
Kind parseStep(std::string_view line);
std::optional<std::string> parseCueHeader(std::string_view line);
std::optional<Anchor> parseAnchorHeader(std::string_view line);

// Whitespace-separated words, where a double quote opens a word that runs to the next one.
std::vector<Word> words(std::string_view text);
std::optional<AgentCall> agentCall(std::string_view line);

// Every piece between blanks and commas that reads as a number once "px" is deleted.
std::vector<double> numbers(std::string_view line);

// The seconds after the first "over" that has a following word ("0.8" or "0.8s").
std::optional<double> over(const std::vector<std::string_view>& words);

// The whole text as a decimal number in the C locale, with no leading blank.
std::optional<double> number(std::string_view text);

// A step the runner cannot perform at all.
struct Unperformable {
  int line = 0;
  std::string raw;
  std::string why;
  std::string sentence() const;
  bool operator==(const Unperformable&) const = default;
};

// What will go wrong on the stage, by line.
std::vector<BlockingDiagnostic> diagnostics(std::string_view source, const Recording& recording);

// Warnings one by one, then notes folded where they differ only in what they quote.
std::vector<DiagnosticGroup> grouped(const std::vector<BlockingDiagnostic>& diagnostics);

std::vector<Unperformable> unperformable(std::string_view source);

// The message with each single-quoted part replaced by `saying`.
std::string withoutQuoted(std::string_view message, std::string_view saying);

}  // namespace Blocking

}  // namespace tavorin
