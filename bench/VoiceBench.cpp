// Targets: casting and grouping a 1,000-line production under 2 ms (views redo it
// on every change); tavorin-speech speaking a 10-word sentence under 200 ms.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <thread>

#include "kit/VoiceGroups.hpp"
#include "voice/VoicePlan.hpp"
#include "voice/local/LocalDriver.hpp"
#include "voice/speechserver/EspeakSpeaker.hpp"
#include "voice/speechserver/SpeechServer.hpp"

namespace {

using namespace tavorin;

Recording thousandLines(const char* span) {
  Recording rec("bench", "Bench");
  rec.voice.character = "narrator";
  rec.voice.span = span;
  for (int i = 0; i < 1000; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.start = i * 2.5;
    line.duration = 2.2;
    line.text = "This is line number " + std::to_string(i) + ", which says a few words about the studio.";
    if (i % 50 == 7) line.approved = true;
    if (i % 40 == 3) line.voice = "bf";
    rec.timeline.push_back(line);
  }
  return rec;
}

void VoicePlanAndGrouping(benchmark::State& state, const char* span) {
  const Recording rec = thousandLines(span);
  const std::vector<DriverCharacter> cast{{"narrator", "Narrator", "af", {{"af", "af", true, {}, {}, {}}, {"bf", "bf", true, {}, {}, {}}}}};
  for (auto _ : state) {
    size_t refused = 0;
    for (const auto& item : rec.timeline) refused += VoicePlan::of(item, rec, cast, "kokoro").refused();
    auto groups = VoiceGroups::of(rec);
    benchmark::DoNotOptimize(groups);
    benchmark::DoNotOptimize(refused);
  }
}
BENCHMARK_CAPTURE(VoicePlanAndGrouping, perLine, "")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(VoicePlanAndGrouping, chars600, "chars:600")->Unit(benchmark::kMillisecond);

const char* tenWords = "Open the project and press record to film the first take.";

void EspeakSpeaksTenWords(benchmark::State& state) {
  static EspeakSpeaker speaker;
  for (auto _ : state) benchmark::DoNotOptimize(speaker.speak(tenWords, "en-us", 1.0));
}
BENCHMARK(EspeakSpeaksTenWords)->Unit(benchmark::kMillisecond);

// The whole road a line takes: HTTP to the server, espeak, the WAV written and measured.
void TavorinSpeechRendersTenWords(benchmark::State& state) {
  static EspeakSpeaker speaker;
  SpeechServer server(speaker);
  const int port = server.bind(0);
  std::thread serving([&] { server.serve(); });
  const auto dir = std::filesystem::temp_directory_path() / ("tavorin-voice-bench-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  LocalServer{"http://127.0.0.1:" + std::to_string(port), std::nullopt}.save(dir / "local-voice.json");
  LocalDriver driver(dir / "local-voice.json");
  for (auto _ : state) benchmark::DoNotOptimize(driver.render(tenWords, "espeak-ng", "en-us", dir / "line.wav"));
  server.stop();
  serving.join();
  std::filesystem::remove_all(dir);
}
BENCHMARK(TavorinSpeechRendersTenWords)->Unit(benchmark::kMillisecond);

}  // namespace
