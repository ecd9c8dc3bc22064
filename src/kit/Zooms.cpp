#include "kit/Zooms.hpp"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace tavorin {

namespace {

// The tenth of a millisecond of slack lets a zoom butt against its neighbour.
constexpr double slack = 0.0001;

double milliseconds(double v) { return std::round(v * 1000) / 1000; }

std::string format(const char* pattern, ...) {
  va_list args, again;
  va_start(args, pattern);
  va_copy(again, args);
  const int size = std::vsnprintf(nullptr, 0, pattern, args);
  va_end(args);
  std::string out(static_cast<std::size_t>(std::max(size, 0)), '\0');
  std::vsnprintf(out.data(), out.size() + 1, pattern, again);
  va_end(again);
  return out;
}

Zoom* find(Recording& recording, std::string_view id) {
  if (!recording.zooms) return nullptr;
  for (auto& z : *recording.zooms)
    if (z.id == id) return &z;
  return nullptr;
}

void sortByStart(Recording& recording) {
  std::stable_sort(recording.zooms->begin(), recording.zooms->end(),
                   [](const Zoom& a, const Zoom& b) { return a.from < b.from; });
}

}  // namespace

std::string Zooms::name(Style s) { return s == Style::spring ? "spring" : "smooth"; }

double Zooms::clamped01(double v) { return std::clamp(v, 0.0, 1.0); }

double Zooms::clampScale(double v) { return std::clamp(v, minScale, maxScale); }

Zooms::Style Zooms::style(const Zoom& zoom) {
  return zoom.style == std::optional<std::string>("spring") ? Style::spring : Style::smooth;
}

double Zooms::ramp(const Zoom& zoom) {
  const double length = zoom.to - zoom.from;
  if (!(length > 0)) return 0;
  const double own = zoom.ramp ? std::clamp(*zoom.ramp, 0.0, maxRamp)
                               : (style(zoom) == Style::spring ? springRamp : smoothRamp);
  return std::min(own, rampShare * length);
}

double Zooms::eased(double t, Style style) {
  t = std::clamp(t, 0.0, 1.0);
  if (style == Style::spring) return 1 - std::exp(-springDecay * t) * std::cos(springRate * t);
  return t < 0.5 ? 4 * t * t * t : 1 - std::pow(2 - 2 * t, 3) / 2;
}

double Zooms::scale(const Zoom& zoom, double t) {
  if (!(zoom.to > zoom.from) || t < zoom.from || t >= zoom.to) return 1;
  const double s = clampScale(zoom.scale);
  const double r = ramp(zoom);
  if (r <= 0.0001) return s;
  const double p = std::min({(t - zoom.from) / r, (zoom.to - t) / r, 1.0});
  return 1 + (s - 1) * eased(p, style(zoom));
}

Zooms::Frame Zooms::window(double scale, double x, double y) {
  const double half = 1 / (2 * scale);
  return Frame{scale, std::clamp(x, half, 1 - half), std::clamp(y, half, 1 - half)};
}

std::vector<Zoom> Zooms::list(const Recording& recording) {
  if (!recording.zooms) return {};
  auto out = *recording.zooms;
  std::stable_sort(out.begin(), out.end(), [](const Zoom& a, const Zoom& b) { return a.from < b.from; });
  return out;
}

std::optional<std::vector<Zoom>> Zooms::stored(const Recording& recording) {
  if (!recording.zooms || recording.zooms->empty()) return std::nullopt;
  return recording.zooms;
}

const Zoom* Zooms::zoom(std::string_view id, const Recording& recording) {
  return find(const_cast<Recording&>(recording), id);
}

const Zoom* Zooms::active(double t, const Recording& recording) {
  if (!recording.zooms) return nullptr;
  for (const auto& z : *recording.zooms)
    if (z.from <= t && t < z.to) return &z;
  return nullptr;
}

Zooms::Frame Zooms::frame(double t, const Recording& recording) {
  const Zoom* z = active(t, recording);
  if (!z) return Frame{};
  const double s = std::max(scale(*z, t), 1.0);
  const double x = z->anchor ? clamped01(z->anchor->x) : 0.5;
  const double y = z->anchor ? clamped01(z->anchor->y) : 0.5;
  return window(s, x, y);
}

std::string Zooms::nextId(const Recording& recording) {
  auto taken = recording.itemIds();
  if (recording.zooms)
    for (const auto& zoom : *recording.zooms) taken.insert(zoom.id);
  if (recording.segments)
    for (const auto& segment : *recording.segments) taken.insert(segment.id);
  for (int n = 1;; ++n) {
    std::string id = "z" + std::to_string(n);
    if (!taken.count(id)) return id;
  }
}

std::optional<Zooms::Span> Zooms::room(const Recording& recording, std::string_view id, double from, double to) {
  const double f = std::max(from, 0.0);
  double lower = 0;
  std::optional<double> upper;
  if (recording.zooms) {
    for (const auto& other : *recording.zooms) {
      if (other.id == id) continue;
      // One that began before `f` bounds the start by its end, even when `f` falls inside it.
      if (other.to <= f + slack || other.from < f - slack) lower = std::max(lower, other.to);
      if (other.from >= f - slack) upper = upper ? std::min(*upper, other.from) : other.from;
    }
  }
  const double start = std::max(f, lower);
  const double end = upper ? std::min(to, *upper) : to;
  if (!(end - start >= 0.1999)) return std::nullopt;
  return Span{milliseconds(start), milliseconds(end)};
}

std::optional<std::string> Zooms::add(Recording& recording, double at, double length, double scale,
                                      std::optional<Zoom::Anchor> anchor, std::optional<std::string> style) {
  const double f = std::max(at, 0.0);
  auto span = room(recording, "", f, f + std::max(length, minLength));
  if (!span) return std::nullopt;
  Zoom z;
  z.id = nextId(recording);
  z.from = span->from;
  z.to = span->to;
  z.scale = clampScale(scale);
  z.anchor = anchor;
  z.style = std::move(style);
  if (!recording.zooms) recording.zooms.emplace();
  recording.zooms->push_back(z);
  sortByStart(recording);
  return z.id;
}

std::optional<std::string> Zooms::duplicate(Recording& recording, std::string_view id, std::optional<double> at) {
  const Zoom* original = find(recording, id);
  if (!original) return std::nullopt;
  Zoom copy = *original;
  const double f = at.value_or(original->to);
  auto span = room(recording, "", f, f + (original->to - original->from));
  if (!span) return std::nullopt;
  copy.id = nextId(recording);
  copy.from = span->from;
  copy.to = span->to;
  recording.zooms->push_back(copy);
  sortByStart(recording);
  return copy.id;
}

bool Zooms::remove(Recording& recording, std::string_view id) {
  if (!find(recording, id)) return false;
  std::erase_if(*recording.zooms, [&](const Zoom& z) { return z.id == id; });
  if (recording.zooms->empty()) recording.zooms.reset();
  return true;
}

bool Zooms::move(Recording& recording, std::string_view id, double to) {
  Zoom* z = find(recording, id);
  if (!z) return false;
  const double length = z->to - z->from;
  double start = std::max(to, 0.0);
  // A target whose middle is past a neighbour's middle goes to that neighbour's far
  // side; each neighbour is passed at most once, so the walk ends.
  auto others = list(recording);
  std::erase_if(others, [&](const Zoom& o) { return o.id == id; });
  for (std::size_t pass = 0; pass <= others.size(); ++pass) {
    const Zoom* hit = nullptr;
    for (const auto& o : others)
      if (o.from < start + length - slack && o.to > start + slack) {
        hit = &o;
        break;
      }
    if (!hit) break;
    start = start + length / 2 > (hit->from + hit->to) / 2 ? hit->to : hit->from - length;
  }
  if (start < -slack) return false;
  start = std::max(start, 0.0);
  auto span = room(recording, id, start, start + length);
  if (!span || std::abs((span->to - span->from) - length) > 0.001 || std::abs(span->from - start) > 0.001)
    return false;
  z->from = span->from;
  z->to = span->to;
  sortByStart(recording);
  return true;
}

bool Zooms::resize(Recording& recording, std::string_view id, std::optional<double> from, std::optional<double> to) {
  Zoom* z = find(recording, id);
  if (!z) return false;
  const double newFrom = from ? std::min(*from, z->to - minLength) : z->from;
  const double newTo = to ? std::max(*to, newFrom + minLength) : z->to;
  auto span = room(recording, id, newFrom, newTo);
  if (!span) return false;
  z->from = span->from;
  z->to = span->to;
  sortByStart(recording);
  return true;
}

bool Zooms::setScale(Recording& recording, std::string_view id, double scale) {
  Zoom* z = find(recording, id);
  if (!z || std::isnan(scale)) return false;
  z->scale = clampScale(scale);
  return true;
}

bool Zooms::setAnchor(Recording& recording, std::string_view id, double x, double y) {
  Zoom* z = find(recording, id);
  if (!z || std::isnan(x) || std::isnan(y)) return false;
  auto fourPlaces = [](double v) { return std::round(clamped01(v) * 10000) / 10000; };
  z->anchor = Zoom::Anchor{fourPlaces(x), fourPlaces(y)};
  return true;
}

bool Zooms::setStyle(Recording& recording, std::string_view id, const std::string& style) {
  Zoom* z = find(recording, id);
  if (!z) return false;
  z->style = style;
  return true;
}

bool Zooms::setRamp(Recording& recording, std::string_view id, std::optional<double> seconds) {
  Zoom* z = find(recording, id);
  if (!z || (seconds && std::isnan(*seconds))) return false;
  if (seconds)
    z->ramp = std::clamp(*seconds, 0.0, maxRamp);
  else
    z->ramp.reset();
  return true;
}

void Zooms::slide(Recording& recording, double from, double by) {
  if (std::abs(by) <= 0.0001 || !recording.zooms) return;
  auto shift = [&](double v) {
    if (v < from - slack) return v;
    double moved = v + by;
    if (by < 0) moved = std::max(moved, from);
    return milliseconds(moved);
  };
  for (auto& z : *recording.zooms) {
    z.from = shift(z.from);
    z.to = shift(z.to);
    if (z.to - z.from < minLength) z.to = milliseconds(z.from + minLength);
  }
}

std::string Zooms::summary(const Zoom& zoom) {
  const double x = zoom.anchor ? clamped01(zoom.anchor->x) : 0.5;
  const double y = zoom.anchor ? clamped01(zoom.anchor->y) : 0.5;
  return format("%.2f× %s at %.0f%% × %.0f%%", clampScale(zoom.scale), name(style(zoom)).c_str(), x * 100, y * 100);
}

std::string Zooms::curve(const std::string& p, Style style) {
  if (style == Style::spring)
    return format("1-exp(-%g*%s)*cos(%g*%s)", springDecay, p.c_str(), springRate, p.c_str());
  return "if(lt(" + p + ",0.5),4*pow(" + p + ",3),1-pow(2-2*" + p + ",3)/2)";
}

std::string Zooms::rate(double fps) {
  if (!(fps > 0.1)) fps = 30;
  const double whole = std::round(fps);
  if (std::abs(fps - whole) <= 0.01) return format("%.0f", whole);
  return format("%.3f", fps);
}

std::optional<std::string> Zooms::filter(const std::vector<Zoom>& zooms, int width, int height, double fps,
                                         const std::string& clock) {
  if (width < 1 || height < 1) return std::nullopt;
  const char* c = clock.c_str();
  std::string scaleTerms = "1", xTerms, yTerms;
  bool any = false;
  for (const auto& z : zooms) {
    if (!(z.to - z.from >= 0.1999)) continue;
    any = true;
    const std::string gate = format("between(%s,%.4f,%.4f)", c, z.from, z.to);
    const double r = ramp(z);
    const std::string progress =
        r > 0.0001 ? format("clip(min((%s-%.4f)/%.4f,(%.4f-%s)/%.4f),0,1)", c, z.from, r, z.to, c, r) : "1";
    scaleTerms += "+" + format("%.4f*%s*(", clampScale(z.scale) - 1, gate.c_str()) + curve(progress, style(z)) + ")";
    // The aim jumps with the gate: it is the zoom that eases, not the pan.
    const double dx = z.anchor ? clamped01(z.anchor->x) - 0.5 : 0;
    const double dy = z.anchor ? clamped01(z.anchor->y) - 0.5 : 0;
    xTerms += format("%s%.4f*%s", dx < 0 ? "-" : "+", std::abs(dx), gate.c_str());
    yTerms += format("%s%.4f*%s", dy < 0 ? "-" : "+", std::abs(dy), gate.c_str());
  }
  if (!any) return std::nullopt;
  const std::string r = rate(fps);
  return "fps=" + r + ",zoompan=z='" + scaleTerms + "'" + ":x='iw*(0.5" + xTerms + ")-iw/zoom/2'" +
         ":y='ih*(0.5" + yTerms + ")-ih/zoom/2'" + ":d=1:s=" + std::to_string(width) + "x" + std::to_string(height) +
         ":fps=" + r;
}

}  // namespace tavorin
