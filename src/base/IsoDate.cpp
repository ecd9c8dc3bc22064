#include "base/IsoDate.hpp"

namespace tavorin {

using Clock = IsoDate::Clock;

namespace {

std::string pad(long value, int width) {
  std::string digits = std::to_string(value);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

struct Civil {
  int year;
  unsigned month, day;
  long hour, minute, second;
};

Civil civil(Clock::time_point t) {
  using namespace std::chrono;
  auto secs = floor<seconds>(t);
  auto day = floor<days>(secs);
  year_month_day ymd{day};
  hh_mm_ss hms{secs - day};
  return {static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
          static_cast<long>(hms.hours().count()), static_cast<long>(hms.minutes().count()),
          static_cast<long>(hms.seconds().count())};
}

}  // namespace

std::string IsoDate::stamp(Clock::time_point t) {
  Civil c = civil(t);
  return pad(c.year, 4) + pad(c.month, 2) + pad(c.day, 2) + "-" + pad(c.hour, 2) + pad(c.minute, 2) +
         pad(c.second, 2);
}

std::string IsoDate::format(Clock::time_point t) {
  Civil c = civil(t);
  return pad(c.year, 4) + "-" + pad(c.month, 2) + "-" + pad(c.day, 2) + "T" + pad(c.hour, 2) + ":" +
         pad(c.minute, 2) + ":" + pad(c.second, 2) + "Z";
}

std::optional<Clock::time_point> IsoDate::parse(std::string_view s) {
  using namespace std::chrono;
  auto digits = [&](size_t at, size_t n) -> std::optional<int> {
    if (at + n > s.size()) return std::nullopt;
    int v = 0;
    for (size_t i = at; i < at + n; ++i) {
      if (s[i] < '0' || s[i] > '9') return std::nullopt;
      v = v * 10 + (s[i] - '0');
    }
    return v;
  };
  auto is = [&](size_t at, char ch) { return at < s.size() && s[at] == ch; };

  auto y = digits(0, 4), mo = digits(5, 2), d = digits(8, 2), h = digits(11, 2), mi = digits(14, 2),
       se = digits(17, 2);
  if (!y || !mo || !d || !h || !mi || !se || !is(4, '-') || !is(7, '-') || !(is(10, 'T') || is(10, 't')) ||
      !is(13, ':') || !is(16, ':'))
    return std::nullopt;
  year_month_day ymd{year{*y}, month{static_cast<unsigned>(*mo)}, day{static_cast<unsigned>(*d)}};
  if (!ymd.ok() || *h > 23 || *mi > 59 || *se > 60) return std::nullopt;

  size_t at = 19;
  if (is(at, '.')) {
    ++at;
    size_t start = at;
    while (at < s.size() && s[at] >= '0' && s[at] <= '9') ++at;
    if (at == start) return std::nullopt;
  }
  long offset = 0;
  if (is(at, 'Z') || is(at, 'z')) {
    ++at;
  } else if (is(at, '+') || is(at, '-')) {
    int sign = s[at] == '-' ? -1 : 1;
    auto oh = digits(at + 1, 2);
    if (!oh) return std::nullopt;
    size_t minutesAt = is(at + 3, ':') ? at + 4 : at + 3;
    auto om = digits(minutesAt, 2);
    if (!om) return std::nullopt;
    offset = sign * (*oh * 3600L + *om * 60L);
    at = minutesAt + 2;
  } else {
    return std::nullopt;
  }
  if (at != s.size()) return std::nullopt;

  auto t = sys_days{ymd} + hours{*h} + minutes{*mi} + seconds{*se} - seconds{offset};
  return time_point_cast<Clock::duration>(t);
}

}  // namespace tavorin
