#include <gtest/gtest.h>

#include <cstdlib>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Looks.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/TakesStore.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

// Stands where ffmpeg would: remembers the job, and ends when the test says.
struct FakeExporter : FilmExporter {
  std::optional<Job> job;
  Phase state = Phase::idle;
  double share = 0;
  std::optional<fs::path> out;
  std::optional<std::string> why;
  std::optional<std::string> refuseWith;
  int cancels = 0;

  fs::path start(const Job& j) override {
    if (refuseWith) throw std::runtime_error(*refuseWith);
    job = j;
    state = Phase::running;
    out = j.base / "export" / (j.name + "." + Export::suffix(j.plan.target.value_or(ExportTarget{}).effectiveFormat()));
    return *out;
  }
  void cancel() override {
    ++cancels;
    state = Phase::idle;
    out.reset();
  }
  void forgetFinished() override { state = Phase::idle; }
  void forgetOutput() override { out.reset(); }
  Phase phase() const override { return state; }
  double progress() const override { return share; }
  std::optional<fs::path> output() const override { return out; }
  std::optional<std::string> failure() const override { return why; }
  std::vector<std::string> skipped() const override { return job ? job->plan.skipped : std::vector<std::string>{}; }
  std::vector<std::vector<std::string>> lastPasses() const override { return {}; }

  void end(Phase phase) {
    state = phase;
    if (phase == Phase::failed) why = "ffmpeg couldn't make the file: status 1";
    if (onEnd) onEnd(phase);
  }
};

Take take(const std::string& id, const std::string& startedAt, double seconds = 12) {
  Take t;
  t.id = id;
  t.startedAt = startedAt;
  t.seconds = seconds;
  t.video = "take.mp4";
  t.fromVersion = "v0001";
  t.scheduleDigest = "d";
  t.pads = {1, 1};
  t.status = Take::Status::complete;
  return t;
}

class AppModelExportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = tmp / "launch";
    Recording r("launch", "Launch");
    TimelineItem line("l1", ItemType::line);
    line.text = "Hello there.";
    line.start = 1;
    line.hold = 2;
    r.timeline.push_back(line);
    RecordingStore(dir).saveNewVersion(r, std::chrono::system_clock::now());
    model.open(dir);
    auto owned = std::make_unique<FakeExporter>();
    fake = owned.get();
    model.useExporter(std::move(owned));
    actor.drain();
  }

  // A take with a real little film, made by ffmpeg, so its size and rate are true.
  void shoot(const Take& t, const std::string& size = "320x240", int rate = 25) {
    const fs::path file = TakesStore(dir).begin(t) / t.video;
    const std::string command = "ffmpeg -v error -y -f lavfi -i testsrc=size=" + size + ":rate=" +
                                std::to_string(rate) + " -t 1 -pix_fmt yuv420p '" + file.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }

  test::TempDir tmp;
  fs::path dir;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
  FakeExporter* fake = nullptr;
};

}  // namespace

TEST_F(AppModelExportTest, FootageIsRefusedInTheOrderAUserFixesIt) {
  EXPECT_EQ(model.canExport(), "nothing shot, imported or dropped yet — roll a take or drop a video in");
  EXPECT_EQ(refusal([&] { model.exportFilm(); }),
            "nothing shot, imported or dropped yet — roll a take or drop a video in");

  TakesStore(dir).begin(take("t1", "2026-02-16T09:00:00Z"));  // metadata, but the film never landed
  EXPECT_EQ(model.missingFootage(), "take t1 has metadata but no film on disk");

  shoot(take("t2", "2026-02-16T10:00:00Z"));
  EXPECT_EQ(model.exportTake()->id, "t2");  // the newest complete take
  EXPECT_EQ(model.canExport(), std::nullopt);

  // Choosing the take without film brings its refusal back, by name.
  model.chooseExportTake("t1");
  EXPECT_EQ(model.canExport(), "take t1 has metadata but no film on disk");
  EXPECT_EQ(refusal([&] { model.chooseExportTake("t9"); }), refusal([&] { throw AppModelFailure::noSuchTake("t9"); }));
  model.chooseExportTake(std::nullopt);
  EXPECT_EQ(model.exportTake()->id, "t2");

  Take rolling = take("t3", "2026-02-16T11:00:00Z");
  rolling.status = Take::Status::rolling;
  TakesStore(dir).begin(rolling);
  EXPECT_EQ(refusal([&] { model.chooseExportTake("t3"); }),
            "take t3 is rolling, so there is no whole film to export from it");
  EXPECT_EQ(model.exportTake()->id, "t2");
}

TEST_F(AppModelExportTest, ARunTakesTheStoredTargetUnderItsOwnChoicesAndWritesNothing) {
  shoot(take("t1", "2026-02-16T10:00:00Z"));
  model.setExportQuality(ExportQuality::studio);
  model.toggleSubtitles(false);
  actor.drain();
  const Recording before = model.recording();

  AppModel::ExportRequest request;
  request.subtitles = true;
  request.format = ExportFormat::gif;
  request.fps = 10;
  const fs::path out = model.exportFilm(request);
  EXPECT_EQ(out, dir / "export" / "launch.gif");
  ASSERT_TRUE(fake->job);
  EXPECT_EQ(fake->job->plan.video, "takes/t1/take.mp4");
  EXPECT_EQ(fake->job->plan.target->format, ExportFormat::gif);
  EXPECT_EQ(fake->job->plan.target->fps, 10);
  EXPECT_EQ(fake->job->plan.target->quality, ExportQuality::studio);
  EXPECT_TRUE(Subtitles::burns(fake->job->subtitles));
  EXPECT_EQ(fake->job->plan.captions.size(), 1u);
  EXPECT_EQ(model.recording(), before);
  EXPECT_EQ(model.events().back(), "exporting launch.gif from take t1 with subtitles: Archivo · 5.0% · bottom");

  EXPECT_EQ(model.canExport(), "an export is already running");
  EXPECT_EQ(refusal([&] { model.exportFilm(); }), "an export is already running");
}

TEST_F(AppModelExportTest, TheEndOfARunIsHeardAndItsPaceLearnedForTheEstimate) {
  std::vector<SoundCue> heard;
  model.holdSounds(false);
  model.cuePlayer = [&](SoundCue cue) { heard.push_back(cue); };
  shoot(take("t1", "2026-02-16T10:00:00Z", 12));  // 10 s of film between the pads
  const auto first = model.exportEstimate();
  ASSERT_TRUE(first);
  EXPECT_FALSE(first->learned);
  EXPECT_DOUBLE_EQ(first->seconds, Export::estimateSeconds(10, std::nullopt));
  ASSERT_TRUE(first->bytes);
  EXPECT_EQ(model.exportSizeBytes(), first->bytes);

  model.exportFilm();
  actor.advance(std::chrono::seconds(5));  // half a second of work per second of film
  fake->end(FilmExporter::Phase::done);
  actor.drain();
  EXPECT_EQ(model.events().back(), "exported launch.mp4");
  const auto learned = model.exportEstimate();
  EXPECT_TRUE(learned->learned);
  EXPECT_DOUBLE_EQ(learned->seconds, Export::estimateSeconds(10, 0.5));
  model.sessionWriter().flush();
  EXPECT_DOUBLE_EQ(SessionStore(tmp / "support/session.json").read().exportSpeeds->at("240"), 0.5);

  // The finished run stands until its sheet closes, then the exporter is idle again.
  EXPECT_EQ(fake->phase(), FilmExporter::Phase::done);
  model.forgetFinishedExport();
  EXPECT_EQ(fake->phase(), FilmExporter::Phase::idle);
  model.exportFilm();
  fake->end(FilmExporter::Phase::failed);
  EXPECT_EQ(model.events().back(), "export failed: ffmpeg couldn't make the file: status 1");
  EXPECT_EQ(heard, (std::vector<SoundCue>{SoundCue::exported, SoundCue::failed}));

  // Held by a harness, nothing sounds whatever the mute says.
  model.holdSounds(true);
  EXPECT_FALSE(model.sound(SoundCue::done));
  EXPECT_EQ(heard.size(), 2u);
}

TEST_F(AppModelExportTest, AFinishedFilmGoesToItsDestinationAndExportKeepsTheOriginal) {
  shoot(take("t1", "2026-02-16T10:00:00Z"));
  std::vector<fs::path> uploads;
  model.onExportDelivered = [&](const fs::path& film) { uploads.push_back(film); };
  // Each run ends with a film in export/, as ffmpeg would leave it.
  auto run = [&](const std::string& bytes) {
    model.forgetFinishedExport();
    const fs::path out = model.exportFilm();
    test::writeFile(out, bytes);
    fake->end(FilmExporter::Phase::done);
    actor.drain();
    return out;
  };

  model.setExportDestination(ExportDestination::clipboard);
  const fs::path film = run("first");
  EXPECT_EQ(pasteboard.read(AppModel::filmPasteboardType), "file://" + film.string() + "\r\n");
  EXPECT_EQ(model.events().back(), "the export is on the clipboard");
  EXPECT_EQ(model.toasts().toasts().front().text, "Export copied. Paste it anywhere.");

  // File with no folder chosen: the film stays in export/ and nothing claims a copy.
  model.setExportDestination(ExportDestination::file);
  run("second");
  EXPECT_EQ(model.events().back(), "exported launch.mp4");

  const fs::path chosen = tmp / "Desktop/films";
  model.chooseDeliveryFolder(chosen);
  run("third");
  EXPECT_EQ(model.events().back(), "copied to " + (chosen / "launch.mp4").string());
  EXPECT_EQ(test::readFile(chosen / "launch.mp4"), "third");
  run("fourth");  // a second copy replaces the first
  EXPECT_EQ(test::readFile(chosen / "launch.mp4"), "fourth");

  // A folder that cannot be made fails the copy by name; export/ still holds the film.
  test::writeFile(tmp / "blocked", "a file where the folder would be");
  model.chooseDeliveryFolder(tmp / "blocked/films");
  run("fifth");
  EXPECT_EQ(model.events().back().rfind("the copy to " + (tmp / "blocked/films").string() + " failed: ", 0), 0u)
      << model.events().back();
  EXPECT_EQ(model.toasts().toasts().front().kind, Toast::Kind::failure);
  EXPECT_EQ(test::readFile(film), "fifth");

  // Only YouTube hands the film on, and only a finished one.
  EXPECT_TRUE(uploads.empty());
  model.setExportDestination(ExportDestination::youtube);
  model.forgetFinishedExport();
  model.exportFilm();
  fake->end(FilmExporter::Phase::failed);
  EXPECT_TRUE(uploads.empty());
  run("sixth");
  EXPECT_EQ(uploads, std::vector<fs::path>{film});
}

TEST_F(AppModelExportTest, TheSheetAsksTheSavePanelBeforeAFileExportAndOnlyThen) {
  shoot(take("t1", "2026-02-16T10:00:00Z"));
  test::ScopedEnv home{"HOME", (tmp / "home").string()};
  model.setExportDestination(ExportDestination::file);
  std::vector<fs::path> asked;
  std::vector<fs::path> answers;  // empty: the person cancels
  std::string failWith;
  model.folderChooser = [&](const fs::path& start) -> std::optional<fs::path> {
    asked.push_back(start);
    if (!failWith.empty()) throw std::runtime_error(failWith);
    if (answers.empty()) return std::nullopt;
    return answers.front();
  };

  model.exportFromSheet();
  EXPECT_TRUE(model.choosingDeliveryFolder());
  model.exportFromSheet();  // a second press while the panel is up asks nothing more
  actor.drain();
  EXPECT_FALSE(model.choosingDeliveryFolder());
  EXPECT_FALSE(model.exportRunning());
  EXPECT_EQ(model.events().back(), "no folder chosen, so the export did not run");
  EXPECT_EQ(asked, std::vector<fs::path>{tmp / "home"});

  answers = {tmp / "Films"};
  model.exportFromSheet();
  actor.drain();
  ASSERT_TRUE(model.exportRunning());
  EXPECT_EQ(model.deliveryFolder(), tmp / "Films");
  test::writeFile(*fake->out, "film");
  fake->end(FilmExporter::Phase::done);
  actor.drain();
  EXPECT_EQ(test::readFile(tmp / "Films/launch.mp4"), "film");

  // The next panel opens where the last one closed; one that cannot be shown says why.
  model.forgetFinishedExport();
  failWith = "there is no folder chooser on this desktop: install zenity (Debian package zenity)";
  model.exportFromSheet();
  actor.drain();
  EXPECT_FALSE(model.exportRunning());
  EXPECT_EQ(asked.back(), tmp / "Films");
  EXPECT_EQ(model.toasts().toasts().front().text, failWith);
  EXPECT_EQ(model.events().back(), "the export did not run: " + failWith);

  // Other destinations raise no panel, and neither does a refused export.
  model.setExportDestination(ExportDestination::clipboard);
  model.exportFromSheet();
  EXPECT_TRUE(model.exportRunning());
  model.setExportDestination(ExportDestination::file);
  EXPECT_EQ(refusal([&] { model.exportFromSheet(); }), "an export is already running");
  EXPECT_EQ(asked.size(), 3u);
}

TEST_F(AppModelExportTest, AMutedSetStaysMutedForTheNextLaunch) {
  test::ScopedEnv support{"TAVORIN_SUPPORT", (tmp / "support").string()};
  int heard = 0;
  model.holdSounds(false);
  model.cuePlayer = [&](SoundCue) { ++heard; };
  EXPECT_TRUE(model.sound(SoundCue::cut));
  model.setSoundMuted(true);
  actor.drain();
  EXPECT_FALSE(model.sound(SoundCue::cut));
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(model.events().back(), "sound cues muted");

  AppModel next{actor, SessionStore(tmp / "support/session.json"), pasteboard};
  EXPECT_TRUE(next.soundMuted());
  // A player that throws (no device) is noted, never thrown at what the cue marks.
  next.holdSounds(false);
  next.setSoundMuted(false);
  next.cuePlayer = [](SoundCue) { throw std::runtime_error("No sound output could start: no device."); };
  EXPECT_FALSE(next.sound(SoundCue::done));
  EXPECT_EQ(next.events().back(), "sound cue done did not play: No sound output could start: no device.");
  actor.drain();
}

TEST_F(AppModelExportTest, CancelStopsTheRunAndALaunchFailureIsTheUsersSentence) {
  shoot(take("t1", "2026-02-16T10:00:00Z"));
  EXPECT_EQ(refusal([&] { model.cancelExport(); }), "no export is running");
  model.exportFilm();
  model.cancelExport();
  EXPECT_EQ(fake->cancels, 1);
  EXPECT_FALSE(model.exportRunning());
  EXPECT_EQ(model.events().back(), "export cancelled");

  fake->refuseWith = "ffmpeg isn't where Tavorin expects it (/usr/local/bin/ffmpeg).";
  EXPECT_EQ(refusal([&] { model.exportFilm(); }), *fake->refuseWith);
}

TEST_F(AppModelExportTest, SettingsAreUndoableEditsThatRefuseWhatTheFilmCannotGive) {
  shoot(take("t1", "2026-02-16T10:00:00Z"), "640x360", 25);
  EXPECT_EQ(refusal([&] { model.setExportHeight(720); }),
            "This film holds 360 lines of picture, so it stops there.");
  EXPECT_EQ(refusal([&] { model.setExportFps(30); }), "This film runs at 25 frames a second, so it stops there.");
  EXPECT_FALSE(model.recording().exportTarget);

  model.setExportHeight(240);
  actor.drain();
  EXPECT_EQ(model.exportSize()->width, 426);
  EXPECT_EQ(model.exportSize()->height, 240);
  EXPECT_EQ(model.events().back(), "export size 240");

  model.setExportDestination(ExportDestination::youtube);
  actor.drain();
  // A GIF cannot go to YouTube: choosing one sends the destination back to a file.
  model.setExportFormat(ExportFormat::gif);
  actor.drain();
  EXPECT_EQ(model.exportTarget().effectiveDestination(), ExportDestination::file);
  EXPECT_EQ(refusal([&] { model.setExportDestination(ExportDestination::youtube); }),
            "YouTube takes no GIF. Choose MP4 to send this one up.");

  // Undo walks back one setting at a time; all the way back stores no target at all.
  model.undo();
  EXPECT_EQ(model.exportTarget().effectiveDestination(), ExportDestination::youtube);
  model.undo();
  model.undo();
  EXPECT_FALSE(model.recording().exportTarget);
}

TEST_F(AppModelExportTest, TheLookTurnsOnWholeAndCopiesItsImage) {
  model.toggleLook();
  actor.drain();
  EXPECT_EQ(model.recording().look, Looks::fresh());
  EXPECT_EQ(model.events().back(), "the picture sits on Slate");

  model.setLookPadding(0.4);
  model.setLookPadding(0.1);  // a slider's run is one step
  actor.drain();
  EXPECT_DOUBLE_EQ(*model.recording().look->padding, 0.1);
  EXPECT_EQ(model.events().back(), "padding 10%");
  EXPECT_EQ(refusal([&] { model.setLookPreset("neon"); }).rfind("'neon' is not a look preset. Try: slate, ", 0), 0u);
  EXPECT_EQ(refusal([&] { model.setLookColor("red"); }),
            "'red' is not a colour. Write it as #RRGGBB, for example #101216.");

  model.setLookColor("#abc");
  actor.drain();
  EXPECT_EQ(model.recording().look->background->color, "#AABBCC");
  EXPECT_EQ(model.events().back(), "background #AABBCC");

  const fs::path notImage = tmp / "notes.png";
  test::writeFile(notImage, "hello");
  EXPECT_EQ(refusal([&] { model.setLookImage(notImage); }),
            "notes.png is not a PNG or JPEG image, so it can't sit behind the picture.");
  const fs::path wall = tmp / "wall paper.png";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i color=c=red:s=8x8 -frames:v 1 '" + wall.string() + "'").c_str()), 0);
  model.setLookImage(wall);
  actor.drain();
  EXPECT_EQ(model.recording().look->background->image, "look/wall paper.png");
  EXPECT_TRUE(fs::is_regular_file(dir / "look/wall paper.png"));
  EXPECT_EQ(Looks::groundSays(model.recording().look), "wall paper.png");

  model.toggleLook(false);
  actor.drain();
  EXPECT_EQ(model.events().back(), "the picture fills the frame again");
  EXPECT_EQ(model.recording().look->background->image, "look/wall paper.png");  // kept for the next time
  model.undo();
  EXPECT_TRUE(Looks::isOn(model.recording().look));
}

TEST_F(AppModelExportTest, SubtitleEditsWriteTheStyleAndAPreviewWritesNothing) {
  model.toggleSubtitles();
  actor.drain();
  EXPECT_TRUE(Subtitles::burns(model.recording().subtitles));
  EXPECT_EQ(model.events().back(), "subtitles burn into the picture");

  model.setSubtitleSize(20);
  actor.drain();
  EXPECT_EQ(model.recording().subtitles->size, 14);
  EXPECT_EQ(model.events().back(), "subtitle size 14.0%");

  model.setSubtitlePosition(Subtitles::Position::top);
  actor.drain();
  EXPECT_EQ(model.recording().subtitles->position, "top");
  EXPECT_DOUBLE_EQ(model.recording().subtitles->anchor->y, (5 + 14 / 2.0) / 100);
  EXPECT_EQ(model.events().back(), "subtitles at 50% × 12%");

  model.setSubtitleAnchor(2, -1);
  actor.drain();
  EXPECT_EQ(*model.recording().subtitles->anchor, SubtitleStyle::Anchor(1, 0));
  EXPECT_FALSE(model.recording().subtitles->position);

  const Recording before = model.recording();
  model.previewSubtitleFont("IBM Plex Mono");
  EXPECT_EQ(model.previewFont(), "IBM Plex Mono");
  EXPECT_EQ(model.recording(), before);
  model.previewSubtitleFont(" ");
  EXPECT_FALSE(model.previewFont());

  EXPECT_EQ(refusal([&] { model.setSubtitleFont("Serif, Bold"); }),
            "A subtitle font's name can't hold a comma or a line break.");
  EXPECT_EQ(refusal([&] { model.setSubtitleFont("No Such Face Anywhere"); }),
            "There is no font family named 'No Such Face Anywhere' on this computer. Try: tavorinctl subtitles.fonts");
  model.setSubtitleFont("ibm plex mono");
  actor.drain();
  EXPECT_EQ(model.events().back(), "subtitle font ibm plex mono");
  model.setSubtitleFont("   ");
  actor.drain();
  EXPECT_FALSE(model.recording().subtitles->font);
  EXPECT_EQ(model.events().back(), "subtitle font Archivo");
}
