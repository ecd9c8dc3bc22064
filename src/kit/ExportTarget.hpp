#pragma once
#include <optional>
#include <string>

namespace tavorin {

enum class ExportFormat { mp4, gif };
enum class ExportQuality { studio, balanced, web, small };
enum class ExportDestination { file, clipboard, youtube };

// The export settings kept with a production. Enumerations are stored as their case names.
struct ExportTarget {
  std::optional<ExportFormat> format;
  std::optional<int> height;
  std::optional<int> fps;
  std::optional<ExportQuality> quality;
  std::optional<ExportDestination> destination;

  ExportFormat effectiveFormat() const { return format.value_or(ExportFormat::mp4); }
  ExportQuality effectiveQuality() const { return quality.value_or(ExportQuality::balanced); }
  ExportDestination effectiveDestination() const { return destination.value_or(ExportDestination::file); }
  bool isEmpty() const { return !format && !height && !fps && !quality && !destination; }
  bool operator==(const ExportTarget&) const = default;
};

// Case names as stored; `parse...` return nothing for a name outside the enumeration.
std::string name(ExportFormat);
std::string name(ExportQuality);
std::string name(ExportDestination);
std::optional<ExportFormat> parseExportFormat(const std::string&);
std::optional<ExportQuality> parseExportQuality(const std::string&);
std::optional<ExportDestination> parseExportDestination(const std::string&);

}  // namespace tavorin
