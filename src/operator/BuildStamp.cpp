#include "operator/BuildStamp.hpp"

#include <cstdio>
#include <ctime>

namespace tavorin {

namespace fs = std::filesystem;
using namespace std::chrono;

std::optional<fs::path> BuildStamp::checkoutRoot(const fs::path& binary,
                                                 const std::function<bool(const fs::path&)>& exists) {
  fs::path dir = binary.parent_path();
  while (!dir.empty()) {
    if (exists(dir / "CMakeCache.txt")) {
      const fs::path root = dir.parent_path();
      if (exists(root / "CMakeLists.txt") && exists(root / "src")) return root;
      return std::nullopt;
    }
    if (dir == dir.root_path() || dir.parent_path() == dir) break;
    dir = dir.parent_path();
  }
  return std::nullopt;
}

fs::path BuildStamp::currentExecutable() {
  std::error_code ec;
  fs::path p = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : p;
}

namespace {

BuildStamp::TimePoint toSystem(fs::file_time_type t) {
  return time_point_cast<BuildStamp::Clock::duration>(file_clock::to_sys(t));
}

bool hidden(const fs::path& p) {
  const std::string name = p.filename().string();
  return !name.empty() && name.front() == '.';
}

}  // namespace

std::optional<BuildStamp::Change> BuildStamp::newestSourceChange(const fs::path& root) {
  std::optional<Change> newest;
  auto consider = [&](const fs::path& file, fs::file_time_type when) {
    const TimePoint t = toSystem(when);
    // Strictly later only, so that on a tie the first file met stays.
    if (!newest || t > newest->modified) newest = Change{file.lexically_relative(root), t};
  };

  std::error_code ec;
  const fs::path top = root / "CMakeLists.txt";
  if (fs::is_regular_file(top, ec)) {
    const auto when = fs::last_write_time(top, ec);
    if (!ec) consider(top, when);
  }

  // A file that vanishes or cannot be read mid-walk is passed over: the answer is
  // advice to the person at the keyboard, not a gate that may fail on its own.
  fs::recursive_directory_iterator it(root / "src", fs::directory_options::skip_permission_denied, ec);
  const fs::recursive_directory_iterator end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code entryError;
    if (hidden(it->path())) {
      if (it->is_directory(entryError)) it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file(entryError)) continue;
    const auto when = it->last_write_time(entryError);
    if (!entryError) consider(it->path(), when);
  }
  return newest;
}

BuildStamp::Verdict BuildStamp::verdict(std::optional<TimePoint> binaryModified, const std::optional<Change>& newest,
                                        double tolerance) {
  if (!newest) return Verdict::unknown();
  if (!binaryModified) return Verdict::stale(*newest, std::nullopt);
  // Exact in clock ticks; only dates centuries apart overflow, and then floating
  // seconds are more than precise enough.
  const Clock::rep built = binaryModified->time_since_epoch().count();
  const Clock::rep changed = newest->modified.time_since_epoch().count();
  Clock::rep ticks = 0;
  const double lead = __builtin_sub_overflow(built, changed, &ticks)
                          ? duration<double>(duration<double, Clock::period>(double(built) - double(changed))).count()
                          : duration<double>(Clock::duration(ticks)).count();
  if (lead >= -tolerance) return Verdict::current();
  return Verdict::stale(*newest, -lead);
}

std::string BuildStamp::refusal(const Change& behind, std::optional<TimePoint> binaryModified, const fs::path& root,
                                TimePoint now) {
  std::string text = "Tavorin is answering from a build older than the source in " + root.string() + ". ";
  text += behind.file.string() + " changed at " + clock(behind.modified, now);
  if (binaryModified)
    text += "; that window was built at " + clock(*binaryModified, now) + ". ";
  else
    text += ", and that window will not say when it was built. ";
  text += "Quit it with `tavorinctl quit`, then run this again.";
  return text;
}

std::string BuildStamp::clock(TimePoint date, TimePoint now) {
  // English month names whatever the user's locale, so the sentence reads the same
  // in every terminal.
  static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t d = Clock::to_time_t(date);
  const std::time_t n = Clock::to_time_t(now);
  std::tm dt{}, nt{};
  localtime_r(&d, &dt);
  localtime_r(&n, &nt);
  char buf[32];
  if (dt.tm_year == nt.tm_year && dt.tm_yday == nt.tm_yday)
    std::snprintf(buf, sizeof buf, "%02d:%02d", dt.tm_hour, dt.tm_min);
  else
    std::snprintf(buf, sizeof buf, "%d %s %02d:%02d", dt.tm_mday, months[dt.tm_mon], dt.tm_hour, dt.tm_min);
  return buf;
}

std::optional<BuildStamp::TimePoint> BuildStamp::parseDate(std::string_view text) {
  // YYYY-MM-DDTHH:MM:SS[.fraction]Z, or +00:00 in place of the Z.
  auto digits = [&](std::size_t at, std::size_t count) -> std::optional<int> {
    if (at + count > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      value = value * 10 + (text[i] - '0');
    }
    return value;
  };
  if (text.size() < 20 || text[4] != '-' || text[7] != '-' || (text[10] != 'T' && text[10] != 't') ||
      text[13] != ':' || text[16] != ':')
    return std::nullopt;
  const auto y = digits(0, 4), mo = digits(5, 2), d = digits(8, 2);
  const auto h = digits(11, 2), mi = digits(14, 2), s = digits(17, 2);
  if (!y || !mo || !d || !h || !mi || !s || *h > 23 || *mi > 59 || *s > 60) return std::nullopt;
  const year_month_day date{year{*y}, month{static_cast<unsigned>(*mo)}, day{static_cast<unsigned>(*d)}};
  if (!date.ok()) return std::nullopt;

  std::size_t at = 19;
  nanoseconds fraction{0};
  if (at < text.size() && text[at] == '.') {
    ++at;
    long long scale = 100'000'000;
    const std::size_t first = at;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
      fraction += nanoseconds((text[at] - '0') * scale);
      scale /= 10;
    }
    if (at == first) return std::nullopt;
  }
  const std::string_view zone = text.substr(at);
  if (zone != "Z" && zone != "z" && zone != "+00:00") return std::nullopt;

  // Whole seconds first: a nanosecond clock reaches only to the year 2262.
  const sys_seconds whole = sys_days(date) + hours(*h) + minutes(*mi) + seconds(*s);
  if (whole < time_point_cast<seconds>(TimePoint::min()) + seconds(1) ||
      whole > time_point_cast<seconds>(TimePoint::max()) - seconds(1))
    return std::nullopt;
  return time_point_cast<Clock::duration>(whole) + duration_cast<Clock::duration>(fraction);
}

std::optional<BuildStamp::TimePoint> BuildStamp::reportedBuildDate(const JSONValue& status) {
  const JSONValue* build = status["build"];
  const JSONValue* modified = build ? (*build)["modified"] : nullptr;
  if (!modified || !modified->stringValue()) return std::nullopt;
  return parseDate(*modified->stringValue());
}

bool BuildStamp::passesStaleBuild(std::string_view verb) { return verb == "quit" || verb == "status"; }

}  // namespace tavorin
