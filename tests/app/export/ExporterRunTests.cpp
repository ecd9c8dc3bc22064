#include <gtest/gtest.h>
#include <sys/mount.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>

#include "TestSupport.hpp"
#include "app/export/Exporter.hpp"
#include "kit/ExportPlan.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

// The main actor of a test: what the exporter posts waits here until the test pumps it.
struct Actor {
  std::mutex lock;
  std::condition_variable ready;
  std::deque<std::function<void()>> queue;

  Exporter::Post post() {
    return [this](std::function<void()> work) {
      std::lock_guard guard(lock);
      queue.push_back(std::move(work));
      ready.notify_one();
    };
  }

  // Runs posted work until `done` holds; false when a minute passes first.
  bool pumpUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!done()) {
      std::unique_lock guard(lock);
      if (!ready.wait_until(guard, deadline, [&] { return !queue.empty(); })) return false;
      auto work = std::move(queue.front());
      queue.pop_front();
      guard.unlock();
      work();
    }
    return true;
  }
};

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

struct Probe {
  double videoSeconds = 0;
  int width = 0, height = 0;
  std::string rate, codec;
  bool audio = false;
};

Probe probe(const fs::path& file) {
  const auto json = nlohmann::json::parse(
      output("ffprobe -v error -show_entries stream=codec_type,codec_name,width,height,r_frame_rate,duration -of json " +
             quoted(file.string())));
  Probe p;
  for (const auto& s : json["streams"]) {
    if (s["codec_type"] == "audio") p.audio = true;
    if (s["codec_type"] != "video") continue;
    p.width = s["width"];
    p.height = s["height"];
    p.rate = s["r_frame_rate"];
    p.codec = s["codec_name"];
    if (s.contains("duration")) p.videoSeconds = std::stod(s["duration"].get<std::string>());
  }
  return p;
}

struct Frame {
  int width = 0, height = 0;
  std::string rgb;
  std::array<int, 3> at(int x, int y) const {
    const size_t i = (size_t(y) * width + x) * 3;
    return {(unsigned char)rgb[i], (unsigned char)rgb[i + 1], (unsigned char)rgb[i + 2]};
  }
};

Frame grab(const fs::path& film, double at, int width, int height) {
  Frame f{width, height, output("ffmpeg -v error -ss " + std::to_string(at) + " -i " + quoted(film.string()) +
                                    " -frames:v 1 -f rawvideo -pix_fmt rgb24 -")};
  EXPECT_EQ(f.rgb.size(), size_t(width) * height * 3);
  return f;
}

bool near(std::array<int, 3> a, std::array<int, 3> b, int by = 20) {
  for (int i = 0; i < 3; ++i)
    if (std::abs(a[i] - b[i]) > by) return false;
  return true;
}

std::vector<fs::path> filesUnder(const fs::path& folder) {
  std::vector<fs::path> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(folder, ec); !ec && it != fs::recursive_directory_iterator(); ++it)
    out.push_back(it->path());
  return out;
}

const fs::path fonts = fs::path(TAVORIN_TEST_DATA) / "../../resources/fonts";

// A production the test makes: a four-second take of testsrc with a tone, a line's
// audio and a music bed, with a cut, a zoom, a look, burned captions and the bed on.
struct Production {
  fs::path folder;
  Recording recording{"p", "Film"};
  Take take;

  explicit Production(fs::path where, double seconds = 4) : folder(std::move(where)) {
    fs::create_directories(folder / "takes/t1");
    fs::create_directories(folder / "audio");
    fs::create_directories(folder / "music");
    const std::string lavfi = "ffmpeg -v error -y -f lavfi -i ";
    sh(lavfi + "testsrc=size=320x240:rate=25 -f lavfi -i sine=frequency=300:sample_rate=48000 -t " +
       std::to_string(seconds) + " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest " +
       quoted((folder / "takes/t1/film.mp4").string()));
    sh(lavfi + "sine=frequency=660:sample_rate=48000 -t 1.5 " + quoted((folder / "audio/l1.wav").string()));
    sh(lavfi + "sine=frequency=220:sample_rate=44100 -t 6 " + quoted((folder / "music/bed.wav").string()));

    take.id = "t1";
    take.video = "film.mp4";
    take.seconds = seconds;
    take.pads = {0.5, 0.5};
    take.status = Take::Status::complete;

    TimelineItem line("l1", ItemType::line);
    line.start = 0.1;
    line.duration = 1.5;
    line.audio = "audio/l1.wav";
    line.text = "Hello: there, [world]";
    TimelineItem bed("m1", ItemType::audio);
    bed.start = 0;
    bed.file = "music/bed.wav";
    bed.duration = 6;
    bed.gain = -12;
    recording.timeline = {line, bed};
    recording.segments = std::vector<Segment>{{"s1", std::nullopt, 0, 1.5, std::nullopt}, {"s2", std::nullopt, 1.5, 3, 2}};
    recording.zooms = std::vector<Zoom>{{"z1", 0.2, 1.4, 2, Zoom::Anchor{0.3, 0.3}, std::nullopt, std::nullopt}};
    recording.look = Look{true, 0.1, 0.08, false, Look::Background{std::nullopt, "#2060C0", std::nullopt}};
    recording.exportTarget = ExportTarget{std::nullopt, 180, 20, std::nullopt, std::nullopt};
    recording.subtitles = SubtitleStyle{};
    recording.subtitles->burn = true;
  }

  ExportPlan plan() const { return ExportPlan::make(recording, take); }
};

struct Session {
  Actor actor;
  Exporter exporter{actor.post(), {}, fonts};

  fs::path film(const Production& p, const std::string& name,
                std::optional<fs::path> destination = std::nullopt) {
    const fs::path out =
        exporter.exportFilm(p.plan(), p.folder, name, p.recording.subtitles, 0.0, std::move(destination));
    EXPECT_EQ(exporter.phase(), Exporter::Phase::running);
    EXPECT_TRUE(actor.pumpUntil([&] { return exporter.phase() != Exporter::Phase::running; }));
    EXPECT_EQ(exporter.phase(), Exporter::Phase::done) << exporter.failure().value_or("") << exporter.errorTail();
    return out;
  }
};

bool mountTmpfs(const fs::path& at, const std::string& options) {
  fs::create_directories(at);
  return ::mount("tmpfs", at.c_str(), "tmpfs", options.find("ro") == 0 ? MS_RDONLY : 0,
                 options.c_str()) == 0;
}

}  // namespace

TEST(ExporterRun, FilmWithEveryFeatureComesOutAsPlanned) {
  test::TempDir dir;
  Production p(dir / "prod");
  Session run;
  const fs::path film = run.film(p, "Film");
  EXPECT_EQ(film, p.folder / "export/Film.mp4");
  ASSERT_TRUE(fs::exists(film));
  EXPECT_EQ(run.exporter.progress(), 1);
  EXPECT_EQ(filesUnder(p.folder / "export"), (std::vector<fs::path>{film}));  // no scratch left

  const auto plan = p.plan();
  EXPECT_DOUBLE_EQ(plan.duration, 2.25);
  const Probe probed = probe(film);
  EXPECT_NEAR(probed.videoSeconds, plan.duration, 1.0 / 20 + 1e-6);
  EXPECT_EQ(probed.width, 240);
  EXPECT_EQ(probed.height, 180);
  EXPECT_EQ(probed.rate, "20/1");
  EXPECT_TRUE(probed.audio);

  // The look: the ground where the picture is padded, the ground again inside the
  // picture's rectangle where the corner is rounded off, and the film in the middle.
  const auto rect = Looks::pixels(240, 180, p.recording.look);
  const std::array<int, 3> ground = {0x20, 0x60, 0xC0};
  const Frame zoomed = grab(film, 0.8, 240, 180);
  EXPECT_TRUE(near(zoomed.at(4, 4), ground));
  EXPECT_TRUE(near(zoomed.at(int(rect.x) + 1, int(rect.y) + 1), ground));
  EXPECT_FALSE(near(zoomed.at(int(rect.x) + 12, int(rect.y) + 12), ground));

  // The same film without the zoom differs inside the picture at the same moment.
  p.recording.zooms.reset();
  const fs::path plain = run.film(p, "Film");
  EXPECT_EQ(plain, p.folder / "export/Film 2.mp4");  // never over the earlier export
  const Frame flat = grab(plain, 0.8, 240, 180);
  long difference = 0;
  for (int y = int(rect.y) + 10; y < int(rect.y + rect.height) - 10; ++y)
    for (int x = int(rect.x) + 10; x < int(rect.x + rect.width) - 10; ++x)
      for (int c = 0; c < 3; ++c) difference += std::abs(zoomed.at(x, y)[c] - flat.at(x, y)[c]);
  EXPECT_GT(difference / (rect.width * rect.height), 10);
  EXPECT_TRUE(near(flat.at(4, 4), ground));
}

TEST(ExporterRun, GifGoesThroughThePalette) {
  test::TempDir dir;
  Production p(dir / "prod");
  p.recording.exportTarget = ExportTarget{ExportFormat::gif, std::nullopt, 30, std::nullopt, std::nullopt};
  Session run;
  const fs::path film = run.film(p, "Loop");
  EXPECT_EQ(film.filename(), "Loop.gif");
  ASSERT_EQ(run.exporter.lastPasses().size(), 2u);
  const Probe probed = probe(film);
  EXPECT_EQ(probed.codec, "gif");
  EXPECT_EQ(probed.width, 320);
  EXPECT_EQ(probed.rate, "15/1");
  EXPECT_FALSE(probed.audio);
}

TEST(ExporterRun, AwkwardNamesInEveryPathReachingTheGraph) {
  test::TempDir dir;
  Production p(dir / "it's [a], b;c 50%d: e's");
  Session run;
  const fs::path film = run.film(p, "Cut: 'one', [two]; 100% done");
  EXPECT_EQ(film.filename(), "Cut: 'one', [two]; 100% done.mp4");
  EXPECT_TRUE(probe(film).audio);
  EXPECT_EQ(probe(film).width, 240);
}

TEST(ExporterRun, CancelKillsTheChildAndLeavesNothing) {
  test::TempDir dir;
  Production p(dir / "prod", 30);
  p.recording.segments.reset();
  Session run;
  run.exporter.exportFilm(p.plan(), p.folder, "Long", p.recording.subtitles, std::nullopt);
  ASSERT_EQ(run.exporter.phase(), Exporter::Phase::running);
  run.exporter.cancel();
  EXPECT_EQ(run.exporter.phase(), Exporter::Phase::idle);
  EXPECT_EQ(run.exporter.output(), std::nullopt);
  EXPECT_EQ(run.exporter.failure(), std::nullopt);
  EXPECT_TRUE(filesUnder(p.folder / "export").empty());
  // What the killed child still had in flight says nothing once it lands.
  run.actor.pumpUntil([&] { return run.actor.queue.empty(); });
  EXPECT_EQ(run.exporter.phase(), Exporter::Phase::idle);
  // And the exporter is free for the next one.
  p.recording.look.reset();
  p.recording.zooms.reset();
  p.take.seconds = 4;
  EXPECT_TRUE(fs::exists(run.film(p, "Short")));
}

TEST(ExporterRun, FaultsEndInASentenceAndLeaveNoOutput) {
  test::TempDir dir;
  Production p(dir / "prod");

  {  // no ffmpeg anywhere it is looked for
    Actor actor;
    FFmpegSearch nowhere;
    nowhere.beside = dir / "bin";
    nowhere.places = {};
    nowhere.usePath = false;
    Exporter exporter(actor.post(), nowhere);
    EXPECT_EQ(test::refusal([&] { exporter.exportFilm(p.plan(), p.folder, "F", std::nullopt, std::nullopt); }),
              "ffmpeg isn't where Tavorin expects it (" + (dir / "bin/ffmpeg").string() +
                  "). Install it once: apt install ffmpeg.");
    EXPECT_FALSE(fs::exists(p.folder / "export"));
  }
  {  // the take's film is gone: with a look there is no size to paint for
    Session run;
    ExportPlan plan = p.plan();
    plan.video = "takes/t9/film.mp4";
    EXPECT_EQ(test::refusal([&] { run.exporter.exportFilm(plan, p.folder, "F", std::nullopt, {}); }),
              "couldn't paint the background — the picture's size didn't come back");
    EXPECT_EQ(run.exporter.phase(), Exporter::Phase::idle);
    // without one, ffmpeg says it
    plan.look.reset();
    run.exporter.exportFilm(plan, p.folder, "F", std::nullopt, {});
    ASSERT_TRUE(run.actor.pumpUntil([&] { return run.exporter.phase() != Exporter::Phase::running; }));
    EXPECT_EQ(run.exporter.phase(), Exporter::Phase::failed);
    EXPECT_EQ(run.exporter.failure(), "ffmpeg couldn't make the file: " + (p.folder / plan.video).string() +
                                          ": No such file or directory");
    EXPECT_EQ(run.exporter.output(), std::nullopt);
    EXPECT_TRUE(filesUnder(p.folder / "export").empty());
    run.exporter.forgetFinished();
    EXPECT_EQ(run.exporter.phase(), Exporter::Phase::idle);
  }
  {  // nothing to export, and no take
    Session run;
    ExportPlan plan = p.plan();
    plan.duration = 0;
    EXPECT_EQ(test::refusal([&] { run.exporter.exportFilm(plan, p.folder, "F", std::nullopt, {}); }),
              "there is nothing to export yet");
    plan.video.clear();
    EXPECT_EQ(test::refusal([&] { run.exporter.exportFilm(plan, p.folder, "F", std::nullopt, {}); }),
              "no take to export — shoot one first, or pick one with take=<id>");
  }
}

TEST(ExporterRun, ADestinationThatTakesNoFilm) {
  test::TempDir dir;
  Production p(dir / "prod");
  const fs::path readOnly = dir / "ro", full = dir / "full";
  if (!mountTmpfs(readOnly, "ro,size=1m")) GTEST_SKIP() << "this machine lets no test mount a tmpfs";
  // A small disk, all but a page of it taken.
  const bool fullMounted = mountTmpfs(full, "size=256k");
  if (fullMounted) std::ofstream(full / "filler", std::ios::binary) << std::string(250 * 1024, 'x');
  {
    Session run;
    const std::string said =
        test::refusal([&] { run.exporter.exportFilm(p.plan(), p.folder, "F", p.recording.subtitles, 0.0, readOnly); });
    EXPECT_EQ(said.rfind("couldn't write the export into " + readOnly.string() + ": ", 0), 0u) << said;
    EXPECT_TRUE(filesUnder(readOnly).empty());
  }
  if (fullMounted) {
    Session run;
    p.recording.look.reset();  // the film, not the sheets, is what overflows
    run.exporter.exportFilm(p.plan(), p.folder, "F", p.recording.subtitles, 0.0, full);
    ASSERT_TRUE(run.actor.pumpUntil([&] { return run.exporter.phase() != Exporter::Phase::running; }));
    EXPECT_EQ(run.exporter.phase(), Exporter::Phase::failed);
    EXPECT_EQ(run.exporter.failure()->rfind("ffmpeg couldn't make the file: ", 0), 0u) << *run.exporter.failure();
    EXPECT_EQ(run.exporter.output(), std::nullopt);
    EXPECT_EQ(filesUnder(full), (std::vector<fs::path>{full / "filler"}));
  }
  ::umount(readOnly.c_str());
  if (fullMounted) ::umount(full.c_str());
}
