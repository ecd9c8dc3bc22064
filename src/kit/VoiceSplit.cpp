#include "kit/VoiceSplit.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "kit/Schedule.hpp"

namespace tavorin {

namespace {

std::optional<double> numberAfter(std::string_view line, std::string_view marker) {
  auto at = line.find(marker);
  if (at == std::string_view::npos) return std::nullopt;
  std::string_view rest = line.substr(at + marker.size());
  auto stop = rest.find_first_of(" \t\r\n\f\v");
  rest = rest.substr(0, stop);
  double value = 0;
  auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
  if (error != std::errc{} || end != rest.data() + rest.size() || rest.empty() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

double rounded(double value, double scale) { return std::round(value * scale) / scale; }

// A rounded number as a sentence prints it: "14.0", "3.21".
std::string plain(double value, int decimals) { return Schedule::plainDecimal(rounded(value, std::pow(10.0, decimals))); }

bool isSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

}  // namespace

std::vector<VoiceSplit::Pause> VoiceSplit::pauses(std::string_view log, double duration) {
  static constexpr std::string_view startMarker = "silence_start: ";
  static constexpr std::string_view endMarker = "silence_end: ";
  std::vector<Pause> found;
  // A start and a flag rather than an optional: GCC 12 warns falsely on the latter here.
  double pending = 0;
  bool hasPending = false;
  size_t at = 0;
  while (at <= log.size()) {
    size_t stop = log.find('\n', at);
    std::string_view line = log.substr(at, stop == std::string_view::npos ? std::string_view::npos : stop - at);
    at = stop == std::string_view::npos ? log.size() + 1 : stop + 1;
    if (line.empty()) continue;
    if (line.find(startMarker) != std::string_view::npos) {
      auto start = numberAfter(line, startMarker);
      hasPending = start.has_value();
      pending = start.value_or(0);
    } else if (line.find(endMarker) != std::string_view::npos) {
      auto end = numberAfter(line, endMarker);
      if (hasPending && end && pending < *end) found.push_back({pending, *end});
      hasPending = false;
    }
  }
  // The audio ended in silence.
  if (hasPending && pending < duration) found.push_back({pending, duration});
  std::erase_if(found, [&](const Pause& p) { return !(p.start > edge && p.end < duration - edge); });
  std::stable_sort(found.begin(), found.end(), [](const Pause& a, const Pause& b) { return a.start < b.start; });
  return found;
}

double VoiceSplit::share(std::string_view text) {
  double characters = 0, sentences = 0, clauses = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (isSpace(c)) continue;
    if ((c & 0xC0) == 0x80) continue;  // the rest of a character already counted
    characters += 1;
    if (c == '.' || c == '!' || c == '?') sentences += 1;
    if (c == ',' || c == ';' || c == ':') clauses += 1;
  }
  return std::max(1.0, characters + sentenceWeight * sentences + clauseWeight * clauses);
}

std::vector<double> VoiceSplit::expected(const std::vector<double>& shares, double duration) {
  double total = 0;
  for (double s : shares) total += s;
  if (shares.empty() || !(total > 0)) return {};
  std::vector<double> cuts;
  double running = 0;
  for (size_t i = 0; i + 1 < shares.size(); ++i) {
    running += shares[i];
    cuts.push_back(duration * running / total);
  }
  return cuts;
}

std::vector<double> VoiceSplit::fitted(const std::vector<Pause>& pauses, const std::vector<double>& wanted) {
  if (wanted.empty() || pauses.size() < wanted.size()) return {};
  const size_t n = pauses.size(), k = wanted.size();
  static constexpr double infinity = std::numeric_limits<double>::infinity();
  static constexpr size_t none = std::numeric_limits<size_t>::max();
  auto cost = [&](size_t j, size_t w) {
    double off = pauses[j].middle() - wanted[w];
    return off * off - pauseWeight * pauses[j].length() * pauses[j].length();
  };
  std::vector<std::vector<double>> table(k, std::vector<double>(n, infinity));
  std::vector<std::vector<size_t>> from(k, std::vector<size_t>(n, none));
  for (size_t j = 0; j < n; ++j) table[0][j] = cost(j, 0);
  for (size_t w = 1; w < k; ++w) {
    std::optional<size_t> best;
    for (size_t j = 0; j + 1 < n; ++j) {
      if (!best || table[w - 1][j] < table[w - 1][*best]) best = j;
      if (best && table[w - 1][*best] < infinity) {
        table[w][j + 1] = table[w - 1][*best] + cost(j + 1, w);
        from[w][j + 1] = *best;
      }
    }
  }
  size_t end = 0;
  for (size_t j = 1; j < n; ++j)
    if (table[k - 1][j] < table[k - 1][end]) end = j;
  if (!std::isfinite(table[k - 1][end])) return {};
  std::vector<double> cuts(k);
  size_t j = end;
  for (size_t w = k; w-- > 0;) {
    cuts[w] = pauses[j].middle();
    if (w == 0) break;
    if (from[w][j] == none) return {};
    j = from[w][j];
  }
  return cuts;
}

VoiceSplit::Outcome VoiceSplit::slice(const std::vector<Line>& lines, double duration,
                                      const std::vector<Pause>& pauses) {
  if (lines.empty()) return Outcome::refuse("the group has no lines");
  if (!(duration > 0)) return Outcome::refuse("the group's audio has no length");
  if (lines.size() == 1) return Outcome::split({{lines[0].first, 0, duration}}, std::string(fittedMark));
  std::vector<double> shares;
  for (const auto& line : lines) shares.push_back(share(line.second));
  auto cuts = fitted(pauses, expected(shares, duration));
  if (cuts.size() + 1 != lines.size())
    return Outcome::refuse(plain(duration, 2) + "s of audio holds " + std::to_string(pauses.size()) +
                           " pause(s) where " + std::to_string(lines.size() - 1) + " line joins are needed");
  return measure(lines, shares, duration, cuts);
}

VoiceSplit::Outcome VoiceSplit::measure(const std::vector<Line>& lines, const std::vector<double>& shares,
                                        double duration, const std::vector<double>& cuts) {
  std::vector<Slice> slices;
  for (size_t i = 0; i < lines.size(); ++i) {
    double from = i == 0 ? 0.0 : cuts[i - 1];
    double to = i + 1 == lines.size() ? duration : cuts[i];
    double length = to - from;
    if (!(length > 0.02)) return Outcome::refuse("the pauses put " + lines[i].first + " inside " + plain(length, 3) + "s");
    slices.push_back({lines[i].first, rounded(from, 1000), rounded(length, 1000)});
  }
  double total = 0;
  for (double s : shares) total += s;
  double groupRate = total / duration;
  for (size_t i = 0; i < slices.size(); ++i) {
    double rate = shares[i] / slices[i].seconds;
    if (std::fabs(rate - groupRate) > rateBand * groupRate) {
      char buffer[512];
      std::snprintf(buffer, sizeof buffer, "%s reads at %.1f characters a second where the group reads at %.1f",
                    slices[i].id.c_str(), rate, groupRate);
      return Outcome::refuse(buffer);
    }
  }
  return Outcome::split(std::move(slices), std::string(fittedMark));
}

}  // namespace tavorin
