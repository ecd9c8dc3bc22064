#include "kit/Take.hpp"

#include <algorithm>

#include "kit/RecordingJSON.hpp"

namespace tavorin {

using RecordingJSON::Json;
using RecordingJSON::Reader;

std::string name(Take::Status s) {
  switch (s) {
    case Take::Status::rolling: return "rolling";
    case Take::Status::complete: return "complete";
    case Take::Status::aborted: return "aborted";
    case Take::Status::failed: return "failed";
  }
  return "failed";
}

std::optional<Take::Status> parseTakeStatus(std::string_view text) {
  for (auto s : {Take::Status::rolling, Take::Status::complete, Take::Status::aborted, Take::Status::failed})
    if (name(s) == text) return s;
  return std::nullopt;
}

std::string name(Take::Provenance p) { return p == Take::Provenance::imported ? "imported" : "shot"; }

std::optional<Take::Provenance> parseTakeProvenance(std::string_view text) {
  if (text == "shot") return Take::Provenance::shot;
  if (text == "imported") return Take::Provenance::imported;
  return std::nullopt;
}

bool Take::hasFootage() const {
  return (status == Status::complete || status == Status::aborted) && seconds > 0;
}

double Take::footage() const { return std::max(seconds - pads.slate - pads.tail, 0.0); }

namespace {

Json encode(const Take& t) {
  Json j = {{"id", t.id},
            {"startedAt", t.startedAt},
            {"seconds", t.seconds},
            {"video", t.video},
            {"fromVersion", t.fromVersion},
            {"scheduleDigest", t.scheduleDigest},
            {"pads", Json{{"slate", t.pads.slate}, {"tail", t.pads.tail}}},
            {"status", name(t.status)}};
  if (t.capture) j["capture"] = *t.capture;
  if (t.provenance) j["provenance"] = name(*t.provenance);
  return j;
}

}  // namespace

void from_json(const Json& j, Take::Pads& v) {
  Reader r(j, "a take's pads");
  v.slate = r.number("slate");
  v.tail = r.number("tail");
}

std::string Take::encoded() const { return encode(*this).dump(2); }

Take Take::decode(std::string_view text) {
  const Json j = RecordingJSON::parse(text);
  Reader r(j, "a take");
  Take t;
  t.id = r.string("id");
  r.rename("the take \"" + t.id + "\"");
  t.startedAt = r.string("startedAt");
  t.seconds = r.number("seconds");
  t.video = r.string("video");
  t.fromVersion = r.string("fromVersion");
  t.scheduleDigest = r.string("scheduleDigest");
  t.capture = r.optRecord<CaptureConfig>("capture");
  t.pads = r.record<Take::Pads>("pads");
  t.status = r.choice("status", parseTakeStatus, "rolling, complete, aborted, failed");
  t.provenance = r.optChoice("provenance", parseTakeProvenance, "shot, imported");
  return t;
}

}  // namespace tavorin
