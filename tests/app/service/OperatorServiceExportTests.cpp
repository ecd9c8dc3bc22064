#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>

#include "PumpedActor.hpp"
#include "TestSupport.hpp"
#include "app/export/Exporter.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "app/service/FFmpegFilmExporter.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/TakesStore.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

std::string quoted(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

void sh(const std::string& command) { ASSERT_EQ(std::system(command.c_str()), 0) << command; }

std::string output(const std::string& command) {
  std::string out;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, p)) > 0;) out.append(buffer, n);
    pclose(p);
  }
  return out;
}

class OperatorServiceExportTest : public ::testing::Test {
 protected:
  OperatorServiceExportTest()
      : support("TAVORIN_SUPPORT", (tmp / "support").string()),
        model(actor, SessionStore(tmp / "support/session.json"), pasteboard),
        store(model, Library(tmp / "root"), SessionStore(tmp / "support/session.json"), trash),
        service(store, [] {}) {
    Scope::resetForTesting();
    model.useExporter(std::make_unique<FFmpegFilmExporter>(pumped, FFmpegSearch{}, fs::path(TAVORIN_TEST_DATA) /
                                                                                       "../../resources/fonts"));
  }

  OperatorResult call(const std::string& verb, std::map<std::string, std::string> args = {}) {
    asio::io_context context;
    auto future = asio::co_spawn(context, service.handle(OperatorCommand{verb, std::move(args)}), asio::use_future);
    context.run();
    actor.drain();
    return future.get();
  }
  std::string error(const std::string& verb, std::map<std::string, std::string> args = {}) {
    const auto r = call(verb, std::move(args));
    EXPECT_FALSE(r.ok) << verb << " answered " << (r.data ? r.data->encode() : "nothing");
    return r.error.value_or("");
  }
  nlohmann::json data(const std::string& verb, std::map<std::string, std::string> args = {}) {
    const auto r = call(verb, std::move(args));
    EXPECT_TRUE(r.ok) << verb << ": " << r.error.value_or("");
    return nlohmann::json::parse(r.data.value_or(JSONValue()).encode());
  }

  // A production of two lines, and, when asked, a take of `seconds` with a 0.5 s slate:
  // testsrc with a tone, made by ffmpeg and written the way a shoot writes one.
  fs::path open(double seconds = 0) {
    data("project.create", {{"name", "Films"}});
    data("recording.new", {{"title", "Launch"}});
    const fs::path base = *model.baseDir();
    fs::create_directories(base / "audio");
    sh("ffmpeg -v error -y -f lavfi -i sine=frequency=440:sample_rate=48000 -t 1 " + quoted((base / "audio/l1.wav").string()));
    Recording rec = model.recording();
    TimelineItem line("l1", ItemType::line);
    line.text = "Hello, {world}.";
    line.start = 0.5;
    line.audio = "audio/l1.wav";
    line.duration = 1;
    rec.timeline.push_back(line);
    model.setRecording(rec);
    actor.drain();
    data("save");
    if (seconds > 0) shoot("20260216-094501", seconds);
    return base;
  }

  void shoot(const std::string& id, double seconds) {
    Take take;
    take.id = id;
    take.startedAt = "2026-02-16T09:45:01Z";
    take.seconds = seconds;
    take.video = "take.mp4";
    take.fromVersion = "v0001";
    take.scheduleDigest = "d";
    take.pads = {0.5, 0};
    take.status = Take::Status::complete;
    const fs::path folder = TakesStore(*model.baseDir()).begin(take);
    sh("ffmpeg -v error -y -f lavfi -i testsrc=size=640x360:rate=25 -f lavfi -i sine=frequency=300:sample_rate=48000 "
       "-t " + std::to_string(seconds) + " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest " +
       quoted((folder / take.video).string()));
  }

  bool finish() {
    return pumped.pumpUntil([&] { return model.exporter()->phase() != FilmExporter::Phase::running; });
  }

  test::TempDir tmp;
  test::ScopedEnv support;
  ManualMainActor actor;
  // Where the exporter's child threads post: the test pumps it on the model's thread,
  // so what they post runs where the model lives, at a point the test chooses.
  test::PumpedActor pumped;
  MemoryPasteboard pasteboard;
  FreedesktopTrash trash{tmp / "Trash"};
  AppModel model;
  AppStore store;
  OperatorService service;
};

}  // namespace

TEST_F(OperatorServiceExportTest, SettingsVerbsReportTheirChoicesAndRefuseByName) {
  EXPECT_EQ(error("export.format", {{"format", "mp4"}}), "no production is open");
  EXPECT_EQ(data("look.presets")["presets"][0]["id"], "slate");
  EXPECT_EQ(data("look.presets")["presets"].size(), 11u);

  open(4);
  auto format = data("export.format");
  EXPECT_EQ(format["format"], "mp4");
  EXPECT_EQ(format["formats"][1]["widthCeiling"], 1280);
  EXPECT_EQ(error("export.format", {{"format", "webm"}}), "'webm' is not a format. Try: mp4, gif");

  EXPECT_EQ(data("export.destination", {{"to", "youtube"}})["act"], "Upload");
  EXPECT_EQ(data("export.format", {{"format", "gif"}})["destination"], "file");

  EXPECT_EQ(error("export.size", {{"size", "720"}}), "This film holds 360 lines of picture, so it stops there.");
  auto size = data("export.size", {{"height", "240"}});
  EXPECT_EQ(size["output"]["frame"], "426 × 240");
  EXPECT_EQ(size["native"]["height"], 360);
  EXPECT_EQ(size["sizes"][0]["offered"], false);
  EXPECT_EQ(data("export.size", {{"native", "1"}})["size"], "native");

  auto quality = data("export.quality", {{"quality", "studio"}});
  EXPECT_EQ(quality["crf"], 16);
  EXPECT_EQ(quality["levels"].size(), 4u);
  EXPECT_EQ(error("export.quality", {{"quality", "best"}}), "'best' is not a quality. Try: studio, balanced, web, small");

  auto rate = data("export.rate");
  EXPECT_EQ(rate["rates"].size(), 2u);  // native (25) and 24: nothing here invents frames
  EXPECT_EQ(error("export.rate", {{"rate", "30"}}), "'30' is not a rate this film offers. Try: native, 24");
  EXPECT_EQ(data("export.rate", {{"rate", "24"}})["fps"], 24);
  EXPECT_EQ(data("export.rate", {{"fps", "10"}})["rate"], "10");

  auto status = data("export.status");
  EXPECT_EQ(status["phase"], "idle");
  EXPECT_EQ(status["take"], "20260216-094501");
  EXPECT_EQ(status["format"], "gif");
  EXPECT_EQ(status["estimate"]["learned"], false);
  EXPECT_TRUE(status["estimate"]["bytes"].is_number());

  EXPECT_EQ(error("export.take", {{"id", "nope"}}), AppModelFailure::noSuchTake("nope").what());
  EXPECT_EQ(data("export.take", {{"id", "20260216-094501"}})["chosen"], "20260216-094501");
  EXPECT_TRUE(data("export.take")["chosen"].is_null());
}

TEST_F(OperatorServiceExportTest, LookAndSubtitlesVerbsCheckEveryValueBeforeWritingAny) {
  open();
  EXPECT_EQ(data("look")["summary"], "off");
  // A bad value anywhere leaves the look as it was.
  EXPECT_EQ(error("look", {{"on", "1"}, {"padding", "0.4"}}), "look padding=0.4 is out of range: it takes 0 to 0.25.");
  EXPECT_EQ(error("look", {{"on", "1"}, {"color", "teal"}}),
            "'teal' is not a colour. Write it as #RRGGBB, for example #101216.");
  EXPECT_FALSE(model.recording().look);

  auto look = data("look", {{"on", "1"}, {"preset", "tide"}, {"radius", "0.05"}, {"shadow", "0"}});
  EXPECT_EQ(look["on"], true);
  EXPECT_EQ(look["preset"], "tide");
  EXPECT_EQ(look["summary"], "Tide · 6% padding · 5.0% corner");
  EXPECT_EQ(data("look", {{"color", "#102030"}})["ground"]["kind"], "color");
  const std::string before = model.recording().encoded();
  EXPECT_EQ(error("look", {{"padding", "0.2"}, {"image", (tmp / "missing.png").string()}}),
            "There is no image at " + (tmp / "missing.png").string() + ".");
  EXPECT_EQ(error("look", {{"radius", "0.01"}, {"preset", "neon"}}).rfind("'neon' is not a look preset.", 0), 0u);
  EXPECT_EQ(model.recording().encoded(), before);

  EXPECT_EQ(error("subtitles", {{"size", "20"}}), "subtitles size=20 is out of range: it takes 2 to 14.");
  EXPECT_EQ(error("subtitles", {{"position", "left"}}), "'left' is not a position. Try: bottom, center, top");
  EXPECT_EQ(error("subtitles", {{"burn", "1"}, {"font", "No Such Face"}}),
            "There is no font family named 'No Such Face' on this computer. Try: tavorinctl subtitles.fonts");
  EXPECT_FALSE(model.recording().subtitles);
  auto subtitles = data("subtitles", {{"burn", "1"}, {"size", "8"}, {"position", "top"}});
  EXPECT_EQ(subtitles["burn"], true);
  EXPECT_EQ(subtitles["summary"], "Archivo · 8.0% · top");
  subtitles = data("subtitles", {{"x", "0.25"}});
  EXPECT_EQ(subtitles["placement"], "25% × 9%");
  subtitles = data("subtitles", {{"preview", "IBM Plex Mono"}});
  EXPECT_EQ(subtitles["drawn"], "IBM Plex Mono");
  EXPECT_EQ(subtitles["font"], "Archivo");
  EXPECT_EQ(data("subtitles", {{"preview", ""}})["preview"], nullptr);
  EXPECT_EQ(data("subtitles", {{"font", "IBM Plex Mono"}})["font"], "IBM Plex Mono");
  EXPECT_EQ(data("subtitles", {{"font", ""}})["font"], "Archivo");
}

TEST_F(OperatorServiceExportTest, AnExportThroughTheVerbsMakesTheFilmThePlanDescribes) {
  const fs::path base = open(4);
  data("look", {{"on", "1"}, {"preset", "moss"}});
  data("subtitles", {{"burn", "1"}});
  data("export.size", {{"height", "240"}});
  EXPECT_EQ(error("export.cancel"), "no export is running");

  auto started = data("export");
  EXPECT_EQ(started["phase"], "running");
  // The sheet may be lowered and raised again: the run goes on and the sheet shows it.
  data("export.flow");
  EXPECT_EQ(data("export.dismiss")["exportPhase"], "running");
  EXPECT_EQ(started["output"], (base / "export/launch.mp4").string());
  EXPECT_EQ(error("export"), "an export is already running");
  actor.advance(std::chrono::seconds(2));  // the model's clock: the run's pace is learned from it
  ASSERT_TRUE(finish());

  auto status = data("export.status");
  ASSERT_EQ(status["phase"], "done") << status.dump();
  EXPECT_EQ(status["progress"], 1.0);
  const std::string command = status["command"].dump();
  EXPECT_NE(command.find("subtitles="), std::string::npos);
  EXPECT_NE(command.find("alphamerge"), std::string::npos);
  EXPECT_EQ(status["estimate"]["learned"], true);

  const auto probe = nlohmann::json::parse(output(
      "ffprobe -v error -show_entries stream=codec_type,width,height:format=duration -of json " +
      quoted((base / "export/launch.mp4").string())));
  EXPECT_NEAR(std::stod(probe["format"]["duration"].get<std::string>()), 3.5, 0.1);  // the take less its slate
  bool audio = false;
  for (const auto& s : probe["streams"]) {
    if (s["codec_type"] == "audio") audio = true;
    if (s["codec_type"] == "video") {
      EXPECT_EQ(s["width"], 426);
      EXPECT_EQ(s["height"], 240);
    }
  }
  EXPECT_TRUE(audio);

  // A second run never writes over the first.
  data("export", {{"format", "gif"}, {"fps", "5"}});
  ASSERT_TRUE(finish());
  EXPECT_EQ(data("export.status")["passes"].size(), 2u);
  auto films = data("exports")["films"];
  ASSERT_EQ(films.size(), 2u);
  std::set<std::string> names{films[0]["file"], films[1]["file"]};
  EXPECT_EQ(names, (std::set<std::string>{"launch.mp4", "launch.gif"}));
  EXPECT_GT(films[0]["bytes"].get<long long>(), 0);
}

TEST_F(OperatorServiceExportTest, CancelEndsTheChildAndLeavesNoPartialFilm) {
  const fs::path base = open(60);
  data("export.quality", {{"quality", "studio"}});
  data("export");
  // Let ffmpeg get under way: its first progress report arrives.
  ASSERT_TRUE(pumped.pumpUntil([&] { return model.exporter()->progress() > 0; }));
  auto status = data("export.cancel");
  EXPECT_EQ(status["phase"], "idle");
  EXPECT_TRUE(status["output"].is_null());
  std::vector<std::string> left;
  for (const auto& entry : fs::recursive_directory_iterator(base / "export")) left.push_back(entry.path().string());
  EXPECT_TRUE(left.empty()) << left.front();
  EXPECT_TRUE(data("exports")["films"].empty());
  EXPECT_EQ(model.events().back(), "export cancelled");
}

TEST_F(OperatorServiceExportTest, AFilmThatIsGoneEndsInASentenceAndNoOutput) {
  const fs::path base = open(2);
  fs::remove(base / "takes/20260216-094501/take.mp4");
  EXPECT_EQ(error("export"), "take 20260216-094501 has metadata but no film on disk");
  EXPECT_EQ(data("export.youtube")["reason"],
            "take 20260216-094501 has metadata but no film on disk, so the sheet is not armed");
  EXPECT_EQ(data("export.status")["refusal"], "take 20260216-094501 has metadata but no film on disk");
  EXPECT_FALSE(fs::exists(base / "export/launch.mp4"));
}
