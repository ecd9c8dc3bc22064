#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "kit/Recording.hpp"

namespace tavorin {

// One shot or imported film of a production, the record takes/<id>/take.json.
struct Take {
  // Spelled-out constructors: clang 14 does not treat a nested type with member
  // initialisers as default-constructible inside its enclosing one.
  struct Pads {
    double slate;  // picture before the performance
    double tail;   // picture after it
    Pads() : slate(0), tail(0) {}
    Pads(double slate, double tail) : slate(slate), tail(tail) {}
    bool operator==(const Pads&) const = default;
  };

  // "rolling" is written when the camera starts; a take still rolling on disk was cut off.
  enum class Status { rolling, complete, aborted, failed };
  enum class Provenance { shot, imported };

  std::string id;
  std::string startedAt;
  double seconds = 0;
  std::string video;
  std::string fromVersion;
  std::string scheduleDigest;
  std::optional<CaptureConfig> capture;
  Pads pads;
  Status status = Status::rolling;
  std::optional<Provenance> provenance;

  // Takes older than the provenance field were all shot.
  Provenance origin() const { return provenance.value_or(Provenance::shot); }
  // A rolling or failed take has no usable film whatever its file holds.
  bool hasFootage() const;
  bool wasCutOff() const { return status == Status::rolling; }
  // Seconds of film between the slate and the tail, floored at 0.
  double footage() const;

  // Pretty-printed with sorted keys; a missing value is left out.
  std::string encoded() const;
  // Throws DocumentError naming the key when a required one is missing or of the wrong
  // type; unknown keys are ignored.
  static Take decode(std::string_view json);

  bool operator==(const Take&) const = default;
};

std::string name(Take::Status);
std::optional<Take::Status> parseTakeStatus(std::string_view);
std::string name(Take::Provenance);
std::optional<Take::Provenance> parseTakeProvenance(std::string_view);

}  // namespace tavorin
