// What will go wrong on the stage: the complaints about a script that the parser
// itself never makes.
#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "kit/BlockingText.hpp"
#include "kit/Blocking.hpp"
#include "kit/Keys.hpp"
#include "kit/Schedule.hpp"

namespace tavorin {

using BlockingText::joined;

namespace {

using Severity = BlockingDiagnostic::Severity;

const std::vector<std::string> modelNames{"sonnet", "opus", "haiku", "fable"};
const std::vector<std::string> effortNames{"low", "medium", "high"};


bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool urlCharacter(char c) {
  if (isAlpha(c) || isDigit(c)) return true;
  static constexpr std::string_view others = "-._~:/?[]@!$&'()*+,;=";
  return others.find(c) != std::string_view::npos;
}

bool hasBrackets(std::string_view text) { return text.find_first_of("[]") != std::string_view::npos; }

bool validAuthority(std::string_view authority) {
  const size_t at = authority.rfind('@');
  if (at != std::string_view::npos) {
    const std::string_view userinfo = authority.substr(0, at);
    if (hasBrackets(userinfo) || userinfo.find('@') != std::string_view::npos) return false;
    authority.remove_prefix(at + 1);
  }
  std::string_view port;
  if (!authority.empty() && authority.front() == '[') {
    const size_t close = authority.find(']');
    if (close == std::string_view::npos || close == 1) return false;
    if (hasBrackets(authority.substr(1, close - 1))) return false;
    const std::string_view after = authority.substr(close + 1);
    if (!after.empty() && after.front() != ':') return false;
    port = after.empty() ? after : after.substr(1);
  } else {
    const size_t colon = authority.find(':');
    if (hasBrackets(authority.substr(0, colon))) return false;
    if (colon != std::string_view::npos) port = authority.substr(colon + 1);
  }
  return std::all_of(port.begin(), port.end(), isDigit);
}

// Whether the text reads as a URL reference: the characters of an address, a
// scheme that is one, a numeric port, brackets only around a host.
bool isAddress(std::string_view text) {
  if (text.empty()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return false;
      i += 2;
    } else if (!urlCharacter(text[i])) {
      return false;
    }
  }
  // No "#" reaches here: the script cuts a line at the first one.
  std::string_view rest = text;
  if (const size_t question = rest.find('?'); question != std::string_view::npos) {
    if (hasBrackets(rest.substr(question + 1))) return false;
    rest = rest.substr(0, question);
  }
  const size_t colon = rest.find(':');
  if (colon != std::string_view::npos && colon < rest.find('/')) {
    // Before any "/", a colon can only end a scheme.
    const std::string_view scheme = rest.substr(0, colon);
    if (scheme.empty() || !isAlpha(scheme.front())) return false;
    for (char c : scheme)
      if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
    rest = rest.substr(colon + 1);
  }
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    const size_t slash = rest.find('/');
    if (!validAuthority(rest.substr(0, slash))) return false;
    rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash);
  }
  return !hasBrackets(rest);
}

std::vector<Blocking::Unperformable> unperformableSteps(const std::vector<Blocking::Step>& steps) {
  std::vector<Blocking::Unperformable> out;
  for (const auto& step : steps) {
    if (const auto* open = step.kind.as<Blocking::Kind::Open>()) {
      if (!isAddress(open->target))
        out.push_back({step.sourceLine, step.raw, "'" + open->target + "' is not an address this computer can open"});
    } else if (const auto* key = step.kind.as<Blocking::Kind::Key>()) {
      if (auto why = Keys::refusal(key->combo)) out.push_back({step.sourceLine, step.raw, std::move(*why)});
    }
  }
  return out;
}

void anchors(const std::vector<Blocking::Step>& steps, const std::unordered_set<std::string>& lineIds,
             std::vector<BlockingDiagnostic>& out) {
  for (const auto& step : steps) {
    if (step.kind.is<Blocking::Kind::Unknown>()) {
      out.push_back({step.sourceLine, Severity::warning,
                     "Not a step this grammar knows, so it will be skipped. The steps are listed in docs/stage-script.md.",
                     step.raw});
    } else if (step.kind.is<Blocking::Kind::AnchorHeader>() && step.anchor) {
      const auto& anchor = *step.anchor;
      if (anchor.to && !lineIds.count(*anchor.to))
        out.push_back({step.sourceLine, Severity::warning,
                       "No line " + *anchor.to +
                           " in this production \u2014 this step has nothing to hang off, so it will run in "
                           "sequence instead.",
                       step.raw});
      if (anchor.until && !lineIds.count(*anchor.until))
        out.push_back({step.sourceLine, Severity::warning, "No line " + *anchor.until + " to run until.", step.raw});
    }
  }
}

// The screen performs in sequence, whatever the timeline shows: every step of one
// block after the first lands on the same moment as the one before it.
void overlaps(const std::vector<Schedule::Cue>& cues, std::vector<BlockingDiagnostic>& out) {
  const Schedule::Cue* previous = nullptr;
  for (const auto& cue : cues) {
    if (!cue.anchored) continue;
    if (previous && std::abs(cue.time - previous->time) < Schedule::sameMoment)
      out.push_back({cue.sourceLine, Severity::note,
                     "Lands at the same moment as '" + previous->label +
                         "'. The screen will do them back to back, not at once.",
                     cue.label});
    previous = &cue;
  }
}

// An agent's length is unknown beforehand, so everything timed behind it is in doubt.
void afterAnAgent(const std::vector<Blocking::Step>& steps, const std::vector<Schedule::Cue>& cues,
                  const Recording& recording, std::vector<BlockingDiagnostic>& out) {
  const auto agent = std::find_if(steps.begin(), steps.end(),
                                  [](const Blocking::Step& step) { return step.kind.is<Blocking::Kind::Agent>(); });
  if (agent == steps.end()) return;

  const Blocking::Step* later = nullptr;
  for (const auto& step : steps) {
    if (step.sourceLine <= agent->sourceLine || step.anchor) continue;
    if (step.kind.is<Blocking::Kind::Cue>() || step.kind.is<Blocking::Kind::AnchorHeader>()) continue;
    later = &step;
    break;
  }
  double agentTime = 0;
  for (const auto& cue : cues)
    if (cue.id == agent->id) agentTime = cue.time;
  const bool lineAfter = std::any_of(recording.timeline.begin(), recording.timeline.end(), [&](const TimelineItem& item) {
    return item.type == ItemType::line && item.start.value_or(0) > agentTime;
  });
  if (!later && !lineAfter) return;
  out.push_back({later ? later->sourceLine : agent->sourceLine, Severity::note,
                 "Whatever comes after the agent step runs when the agent is done, not at the time shown here. The "
                 "camera keeps rolling until then.",
                 agent->raw});
}

void agentNames(const std::vector<Blocking::Step>& steps, std::vector<BlockingDiagnostic>& out) {
  for (const auto& step : steps) {
    if (!step.kind.is<Blocking::Kind::Agent>()) continue;
    const auto words = Blocking::words(step.raw);
    for (size_t i = 0; i + 1 < words.size(); ++i) {
      const auto& option = words[i];
      const auto& value = words[i + 1];
      if (option.quoted || value.quoted) continue;
      const std::vector<std::string>* known = option.text == "model"    ? &modelNames
                                              : option.text == "effort" ? &effortNames
                                                                        : nullptr;
      if (!known || std::find(known->begin(), known->end(), value.text) != known->end()) continue;
      out.push_back({step.sourceLine, Severity::warning,
                     "'" + value.text + "' is not a " + option.text +
                         " this grammar knows, so the step runs on the default. Try: " + joined(*known) + ".",
                     step.raw});
    }
  }
}

}  // namespace

namespace Blocking {

std::string Unperformable::sentence() const {
  return "line " + std::to_string(line) + ", `" + raw + "` \u2014 " + why;
}

std::vector<Unperformable> unperformable(std::string_view source) { return unperformableSteps(parse(source)); }

std::vector<BlockingDiagnostic> diagnostics(std::string_view source, const Recording& recording) {
  const auto steps = parse(source);
  std::unordered_set<std::string> lineIds;
  for (const auto& item : recording.timeline)
    if (item.type == ItemType::line) lineIds.insert(item.id);
  const auto cues = Schedule::cues(steps, recording);

  std::vector<BlockingDiagnostic> out;
  anchors(steps, lineIds, out);
  overlaps(cues, out);
  afterAnAgent(steps, cues, recording, out);
  agentNames(steps, out);
  for (auto& entry : unperformableSteps(steps))
    out.push_back({entry.line, Severity::warning,
                   entry.why + " The runner would reach this step and pass it by, and only the footage would say so.",
                   entry.raw});
  std::stable_sort(out.begin(), out.end(),
                   [](const BlockingDiagnostic& a, const BlockingDiagnostic& b) { return a.line < b.line; });
  return out;
}

std::string withoutQuoted(std::string_view message, std::string_view saying) {
  std::string out;
  bool inside = false;
  for (char c : message) {
    if (c == '\'') {
      inside = !inside;
      if (inside) out += saying;
    } else if (!inside) {
      out += c;
    }
  }
  return out;
}

std::vector<DiagnosticGroup> grouped(const std::vector<BlockingDiagnostic>& diagnostics) {
  std::vector<const BlockingDiagnostic*> warnings;
  for (const auto& d : diagnostics)
    if (d.severity == Severity::warning) warnings.push_back(&d);
  std::stable_sort(warnings.begin(), warnings.end(),
                   [](const BlockingDiagnostic* a, const BlockingDiagnostic* b) { return a->line < b->line; });

  std::vector<DiagnosticGroup> out;
  for (const auto* warning : warnings)
    out.push_back({"warning." + std::to_string(out.size()), Severity::warning, warning->message, {warning->line}});

  // Notes that differ only in what they quote fall together.
  std::vector<std::pair<std::string, std::vector<const BlockingDiagnostic*>>> notes;
  for (const auto& d : diagnostics) {
    if (d.severity != Severity::note) continue;
    std::string key = withoutQuoted(d.message, "\x01");
    auto found = std::find_if(notes.begin(), notes.end(), [&](const auto& group) { return group.first == key; });
    if (found == notes.end())
      notes.push_back({std::move(key), {&d}});
    else
      found->second.push_back(&d);
  }
  for (size_t k = 0; k < notes.size(); ++k) {
    const auto& members = notes[k].second;
    const bool same = std::all_of(members.begin(), members.end(),
                                  [&](const BlockingDiagnostic* d) { return d->message == members.front()->message; });
    DiagnosticGroup group{"note." + std::to_string(k), Severity::note,
                          same ? members.front()->message : withoutQuoted(members.front()->message, "another step"),
                          {}};
    for (const auto* d : members) group.lines.push_back(d->line);
    std::sort(group.lines.begin(), group.lines.end());
    out.push_back(std::move(group));
  }
  return out;
}

}  // namespace Blocking

}  // namespace tavorin
