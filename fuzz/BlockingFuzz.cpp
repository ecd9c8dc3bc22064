// A stage script: parsed, scheduled against a recording, diagnosed, and its
// blocks' offsets read and rewritten.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kit/Blocking.hpp"
#include "kit/BlockingRewrite.hpp"
#include "kit/Recording.hpp"
#include "kit/Schedule.hpp"

using namespace tavorin;

namespace {
const Recording& film() {
  static const Recording r = [] {
    Recording r("film", "Film");
    double start = 0;
    for (const char* id : {"l1", "l2", "l3"}) {
      TimelineItem line(id, ItemType::line);
      line.text = "Words.";
      line.start = start;
      line.hold = 2;
      start += 2.25;
      r.timeline.push_back(line);
    }
    return r;
  }();
  return r;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view source(reinterpret_cast<const char*>(data), size);
  const auto steps = Blocking::parse(source);
  const auto cues = Schedule::cues(steps, film());
  const auto diagnostics = Blocking::diagnostics(source, film());
  Blocking::grouped(diagnostics);
  for (const auto& cue : cues) {
    const double offset = BlockingRewrite::offset(source, cue.id).value_or(0);
    if (const auto rewritten = BlockingRewrite::setOffset(source, cue.id, offset + 1.25)) {
      // A rewrite changes one block's offset and nothing about the steps' number.
      if (Blocking::parse(*rewritten).size() != steps.size()) __builtin_trap();
      const auto after = BlockingRewrite::offset(*rewritten, cue.id);
      if (!after || std::abs(*after - (offset + 1.25)) > 0.006) __builtin_trap();
    }
  }
  return 0;
}
