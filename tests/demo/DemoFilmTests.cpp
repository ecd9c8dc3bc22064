// The demo film, made from nothing by scripts/demo-film on a display of its own, then
// watched and listened to: its length against the timeline's, the narration over the
// bed, and the page changing as the stage script performs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "base/Text.hpp"
#include "operator/JSONValue.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

// Standard output of a shell command; its status in `status`.
std::string capture(const std::string& command, int* status = nullptr) {
  std::string out;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return out;
  std::array<char, 65536> buffer;
  std::size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) out.append(buffer.data(), n);
  const int rc = ::pclose(pipe);
  if (status) *status = rc;
  return out;
}

std::string shellQuoted(const fs::path& p) { return "'" + p.string() + "'"; }

std::optional<std::string> missingTool() {
  for (const char* tool : {"Xvfb", "chromium", "ffmpeg", "ffprobe", "jq"}) {
    int status = 0;
    capture(std::string("command -v ") + tool + " >/dev/null 2>&1", &status);
    if (status != 0) return std::string(tool) + " is not installed (scripts/install-deps.sh installs it)";
  }
  return std::nullopt;
}

double number(const JSONValue* v) { return v && v->doubleValue() ? *v->doubleValue() : NAN; }

// Mean loudness of the film's sound over [from, from + seconds), in dBFS.
double meanVolume(const fs::path& film, double from, double seconds) {
  char span[64];
  std::snprintf(span, sizeof span, "-ss %.3f -t %.3f", from, seconds);
  const std::string out =
      capture("ffmpeg -hide_banner -nostats " + std::string(span) + " -i " + shellQuoted(film) +
              " -map 0:a -af volumedetect -f null - 2>&1");
  std::smatch m;
  if (!std::regex_search(out, m, std::regex("mean_volume: (-?[0-9.]+|-inf) dB"))) return NAN;
  return m[1] == "-inf" ? -200 : std::stod(m[1]);
}

// The picture at `at` seconds, small and grey: 160 x 90 bytes.
std::string frame(const fs::path& film, double at) {
  char seek[32];
  std::snprintf(seek, sizeof seek, "%.3f", at);
  return capture("ffmpeg -v error -ss " + std::string(seek) + " -i " + shellQuoted(film) +
                 " -frames:v 1 -vf scale=160:90 -pix_fmt gray -f rawvideo -");
}

double meanDifference(const std::string& a, const std::string& b) {
  if (a.size() != b.size() || a.empty()) return -1;
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    sum += std::abs(int(static_cast<unsigned char>(a[i])) - int(static_cast<unsigned char>(b[i])));
  return sum / static_cast<double>(a.size());
}

}  // namespace

TEST(DemoFilm, MadeFromNothingItSpeaksOverItsBedWhileThePagePerforms) {
  if (auto why = missingTool()) GTEST_SKIP() << *why;
  const char* build = std::getenv("TAVORIN_BUILD_DIR");
  ASSERT_TRUE(build) << "ctest gives the build folder in TAVORIN_BUILD_DIR";
  test::TempDir dir;
  const fs::path work = dir / "studio";

  // The command as a user runs it on a machine with no display.
  std::string film;
  {
    const auto made =
        test::spawn("/bin/bash", {TAVORIN_SOURCE_DIR "/scripts/demo-film", "--xvfb", "--work", work.string()},
                    {"TAVORIN_BUILD_DIR=" + std::string(build)}, dir.path());
    ASSERT_GT(made.pid, 0);
    const int rc = test::waitFor(made.pid, 540s);
    const std::string said = test::readFile(made.err);
    ASSERT_EQ(rc, 0) << said;
    film = std::string(Text::trimSpace(test::readFile(made.out)));
    EXPECT_NE(said.find("render "), std::string::npos) << said;
    std::cout << said;
  }
  ASSERT_TRUE(fs::is_regular_file(film)) << film;
  EXPECT_EQ(fs::path(film).parent_path().filename(), "export");

  // Everything it started has stopped: the control file is gone.
  EXPECT_FALSE(fs::exists(work / "data/Tavorin/operator.json"));

  // The production as the studio sees it, asked again through tavorinctl.
  const std::vector<std::string> env{"TAVORIN_ROOT=" + (work / "productions").string(),
                                     "TAVORIN_SUPPORT=" + (work / "support").string(),
                                     "XDG_DATA_HOME=" + (work / "data").string(), "SDL_AUDIODRIVER=dummy"};
  const auto studio = test::spawn(test::programs() / "tavorin", {}, env, dir.path());
  ASSERT_TRUE(test::waitForFile(work / "data/Tavorin/operator.json", 10s)) << test::readFile(studio.err);
  auto ask = [&](std::vector<std::string> args) {
    const auto s = test::spawn(test::programs() / "tavorinctl", args, env, dir.path());
    EXPECT_EQ(test::waitFor(s.pid, 10s), 0) << args[0] << ": " << test::readFile(s.err);
    return JSONValue::decode(test::readFile(s.out));
  };
  ask({"project.open", "name=demo"});
  ask({"recording.open", "slug=halden-demo"});
  const double length = number(ask({"timeline.info"})["length"]);
  const JSONValue items = ask({"timeline.items"});
  const JSONValue cues = ask({"blocking.cues"});
  ask({"quit"});
  EXPECT_EQ(test::waitFor(studio.pid, 10s), 0);

  struct Span {
    double start, end;
  };
  std::map<std::string, Span> lines;
  for (const auto& item : *items["items"]->arrayValue())
    if (item["type"]->stringValue() == std::optional<std::string>("line"))
      lines[*item["id"]->stringValue()] = {number(item["start"]), number(item["start"]) + number(item["duration"])};
  ASSERT_EQ(lines.size(), 8u);
  auto cueTime = [&](const std::string& label) {
    for (const auto& cue : *cues["cues"]->arrayValue())
      if (cue["label"]->stringValue() == std::optional<std::string>(label)) return number(cue["time"]);
    ADD_FAILURE() << "no cue " << label;
    return 0.0;
  };

  // The film: a picture and a sound, as long as the timeline to within a frame.
  const JSONValue probe = JSONValue::decode(
      capture("ffprobe -v error -show_entries stream=codec_type,r_frame_rate:format=duration -of json " + shellQuoted(film)));
  ASSERT_TRUE(probe["streams"] && probe["streams"]->arrayValue()) << probe.pretty();
  std::vector<std::string> kinds;
  for (const auto& s : *probe["streams"]->arrayValue()) kinds.push_back(*s["codec_type"]->stringValue());
  EXPECT_EQ(kinds, (std::vector<std::string>{"video", "audio"}));
  const double seconds = std::stod(*probe["format"]->operator[]("duration")->stringValue());
  EXPECT_NEAR(seconds, length, 1.0 / 24 + 1e-3);

  // Speech where a line is, the bed alone between lines and before the first.
  const Span l2 = lines["l2"], l3 = lines["l3"];
  const double speech = meanVolume(film, l2.start + 0.5, l2.end - l2.start - 1);
  const double between = meanVolume(film, l2.end + 0.15, l3.start - l2.end - 0.3);
  const double intro = meanVolume(film, 0.4, lines["l1"].start - 0.45);
  std::cout << "mean volume: line l2 " << speech << " dB, between l2 and l3 " << between << " dB, before l1 " << intro
            << " dB\n";
  EXPECT_GT(speech, between + 6) << "speech " << speech << " dB, between lines " << between << " dB";
  EXPECT_GT(between, -55) << "the bed should be heard between the lines";
  EXPECT_GT(intro, -55) << "the bed should be heard before the first line";
  EXPECT_LT(intro, speech - 6);
  // ...and it lasts through the closing hold after the last line.
  const double closing = meanVolume(film, lines["l8"].end + 0.3, 1);
  EXPECT_GT(closing, -55) << "the bed should be heard after the last line";

  // The page answers the script: Add opens its sheet, Reminders switches the view.
  const double add = cueTime("click 1736,88");
  EXPECT_GT(meanDifference(frame(film, add - 0.3), frame(film, add + 2.2)), 8);
  const double reminders = cueTime("click 150,330");
  EXPECT_GT(meanDifference(frame(film, reminders - 0.3), frame(film, reminders + 1.2)), 4);
}
