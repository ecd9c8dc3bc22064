#include "kit/TextDiff.hpp"

#include <algorithm>
#include <cstdint>

namespace tavorin::TextDiff {

std::vector<std::string> lines(std::string_view text) {
  std::vector<std::string> out;
  while (!text.empty()) {
    auto end = text.find('\n');
    out.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return out;
}

std::vector<Line> between(std::string_view a, std::string_view b) {
  const auto left = lines(a);
  const auto right = lines(b);
  std::vector<Line> out;

  // Equal heads and tails are the same in every longest common subsequence, so the
  // table only spans the middle: a version file edited in one place stays cheap.
  std::size_t head = 0;
  while (head < left.size() && head < right.size() && left[head] == right[head]) ++head;
  std::size_t tail = 0;
  while (tail < left.size() - head && tail < right.size() - head &&
         left[left.size() - 1 - tail] == right[right.size() - 1 - tail])
    ++tail;

  for (std::size_t i = 0; i < head; ++i) out.push_back(Line::same(left[i]));

  const std::size_t n = left.size() - head - tail;
  const std::size_t m = right.size() - head - tail;
  const auto x = [&](std::size_t i) -> const std::string& { return left[head + i]; };
  const auto y = [&](std::size_t j) -> const std::string& { return right[head + j]; };

  // lcs(i, j): the longest common subsequence of x[i...] and y[j...].
  std::vector<std::uint32_t> table((n + 1) * (m + 1), 0);
  const auto lcs = [&](std::size_t i, std::size_t j) -> std::uint32_t& { return table[i * (m + 1) + j]; };
  for (std::size_t i = n; i-- > 0;)
    for (std::size_t j = m; j-- > 0;)
      lcs(i, j) = x(i) == y(j) ? lcs(i + 1, j + 1) + 1 : std::max(lcs(i + 1, j), lcs(i, j + 1));

  std::size_t i = 0, j = 0;
  while (i < n && j < m) {
    if (x(i) == y(j)) {
      out.push_back(Line::same(x(i)));
      ++i, ++j;
    } else if (lcs(i + 1, j) >= lcs(i, j + 1)) {
      out.push_back(Line::removed(x(i++)));
    } else {
      out.push_back(Line::added(y(j++)));
    }
  }
  for (; i < n; ++i) out.push_back(Line::removed(x(i)));
  for (; j < m; ++j) out.push_back(Line::added(y(j)));

  for (std::size_t k = left.size() - tail; k < left.size(); ++k) out.push_back(Line::same(left[k]));
  return out;
}

std::vector<Line> condensed(const std::vector<Line>& lines, int context) {
  // Two sweeps find each line's distance to the nearest change before and after it,
  // so a large context costs no more than a small one.
  const std::size_t reach = std::size_t(std::max(context, 0));
  const std::size_t none = SIZE_MAX;
  std::vector<bool> marked(lines.size(), false);
  std::size_t last = none;
  for (std::size_t k = 0; k < lines.size(); ++k) {
    if (lines[k].kind != Line::Kind::same) last = k;
    if (last != none && k - last <= reach) marked[k] = true;
  }
  last = none;
  for (std::size_t k = lines.size(); k-- > 0;) {
    if (lines[k].kind != Line::Kind::same) last = k;
    if (last != none && last - k <= reach) marked[k] = true;
  }
  std::vector<Line> out;
  for (std::size_t k = 0; k < lines.size(); ++k)
    if (marked[k]) out.push_back(lines[k]);
  return out;
}

}  // namespace tavorin::TextDiff
