// The render queue's own costs: landing a generation on a long production, and
// the bookkeeping a ticket costs when the engine answers at once.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>

#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

class InstantDriver final : public VoiceDriver {
 public:
  std::string name() const override { return "kokoro"; }
  DriverHealth health() override { return {}; }
  std::vector<DriverCharacter> characters() override { return {}; }
  RenderResult render(const std::string&, const std::string&, const std::string& voice, const fs::path& to) override {
    return {to, 1.0, voice};
  }
};

// Target: under 5 ms to land a generation of 20 lines, with the ripple, on a
// production of 1,000 lines (undo step, caches and the variants index included).
void LandGroupOf20On1000Lines(benchmark::State& state) {
  // On tmpfs where there is one: the cost measured is ours, not the disk's fsync.
  const fs::path base = fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
  const fs::path dir = base / ("tavorin-render-bench-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  Recording rec("bench", "Bench");
  rec.voice.character = "narrator";
  for (int i = 1; i <= 1000; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = "Line number " + std::to_string(i) + " says a few words.";
    line.start = (i - 1) * 3.0;
    line.duration = 2.5;
    if (i >= 400 && i < 420) line.together = "bench";
    rec.timeline.push_back(line);
  }
  RecordingStore(dir).saveNewVersion(rec, std::chrono::system_clock::now());
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model(actor, SessionStore(dir / "session.json"), pasteboard);
  model.open(dir);
  actor.drain();
  const auto group = *model.voiceGroup("l400");
  // Twenty sentences with a pause after each, as the cut check finds them.
  std::vector<VoiceSplit::Pause> pauses;
  double at = 0;
  for (int i = 0; i < 19; ++i) {
    at += 2.0;
    pauses.push_back({at, at + 0.3});
    at += 0.3;
  }
  const RenderResult result{dir / "audio" / group.file("bench"), at + 2.0, std::string("bf")};
  for (auto _ : state) {
    model.landSlices(group, result, pauses, false);
    state.PauseTiming();
    actor.drain();  // the turn closes, as between two landings in the studio
    state.ResumeTiming();
  }
  fs::remove_all(dir);
}
BENCHMARK(LandGroupOf20On1000Lines)->Unit(benchmark::kMillisecond);

// Target: under 1 ms a ticket of the queue's own work; an iteration is 100 tickets.
void QueueOverheadPerTicket(benchmark::State& state) {
  ManualMainActor actor;
  auto driver = std::make_shared<InstantDriver>();
  std::size_t landed = 0;
  RenderQueue queue(
      actor, actor, nullptr, [&] { return driver; },
      [](const std::string& ticket) { return RenderQueue::Plan::go({"words", "narrator", "bf", "/tmp/" + ticket + ".wav"}); },
      [&](const std::string&, const RenderResult&) { ++landed; }, [](bool) {});
  std::vector<std::string> tickets;
  for (int i = 0; i < 100; ++i) tickets.push_back("l" + std::to_string(i));
  for (auto _ : state) {
    queue.enqueue(tickets);
    actor.drain();
  }
  state.SetItemsProcessed(static_cast<int64_t>(landed));
}
BENCHMARK(QueueOverheadPerTicket)->Unit(benchmark::kMicrosecond);

}  // namespace
