#include "kit/ExportTarget.hpp"

namespace tavorin {

std::string name(ExportFormat f) { return f == ExportFormat::gif ? "gif" : "mp4"; }

std::string name(ExportQuality q) {
  switch (q) {
    case ExportQuality::studio: return "studio";
    case ExportQuality::balanced: return "balanced";
    case ExportQuality::web: return "web";
    case ExportQuality::small: return "small";
  }
  return "balanced";
}

std::string name(ExportDestination d) {
  switch (d) {
    case ExportDestination::file: return "file";
    case ExportDestination::clipboard: return "clipboard";
    case ExportDestination::youtube: return "youtube";
  }
  return "file";
}

std::optional<ExportFormat> parseExportFormat(const std::string& s) {
  if (s == "mp4") return ExportFormat::mp4;
  if (s == "gif") return ExportFormat::gif;
  return std::nullopt;
}

std::optional<ExportQuality> parseExportQuality(const std::string& s) {
  for (auto q : {ExportQuality::studio, ExportQuality::balanced, ExportQuality::web, ExportQuality::small})
    if (name(q) == s) return q;
  return std::nullopt;
}

std::optional<ExportDestination> parseExportDestination(const std::string& s) {
  for (auto d : {ExportDestination::file, ExportDestination::clipboard, ExportDestination::youtube})
    if (name(d) == s) return d;
  return std::nullopt;
}

}  // namespace tavorin
