#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "TestSupport.hpp"
#include "VirtualDisplay.hpp"
#include "platform/camera/X11Recorder.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

std::string run(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    std::array<char, 512> chunk{};
    while (std::fgets(chunk.data(), chunk.size(), p)) out += chunk.data();
    ::pclose(p);
  }
  return out;
}

// A plain window of one colour that the test repaints at will.
class PaintedWindow {
 public:
  PaintedWindow(const std::string& display, int x, int y, int w, int h) {
    c_ = xcb_connect(display.c_str(), nullptr);
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
    id_ = xcb_generate_id(c_);
    const std::uint32_t values[] = {0xff0000};
    xcb_create_window(c_, XCB_COPY_FROM_PARENT, id_, screen->root, x, y, w, h, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen->root_visual, XCB_CW_BACK_PIXEL, values);
    xcb_map_window(c_, id_);
    sync();
  }
  ~PaintedWindow() { xcb_disconnect(c_); }
  void paint(std::uint32_t rgb) {
    xcb_change_window_attributes(c_, id_, XCB_CW_BACK_PIXEL, &rgb);
    xcb_clear_area(c_, 0, id_, 0, 0, 0, 0);
    sync();
  }
  void unmap() {
    xcb_unmap_window(c_, id_);
    sync();
  }
  unsigned long id() const { return id_; }

 private:
  // A round trip, so the server has done what was asked before the test goes on.
  void sync() { std::free(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr)); }
  xcb_connection_t* c_;
  xcb_window_t id_;
};

struct Pixel {
  int r, g, b;
};

// One pixel of the frame `at` seconds into the film.
Pixel pixelOf(const fs::path& film, double at, int x, int y, int width) {
  const fs::path raw = film.parent_path() / "frame.rgb";
  const std::string seek = "-ss " + std::to_string(at);
  run("ffmpeg -v error -y " + seek + " -i '" + film.string() + "' -frames:v 1 -f rawvideo -pix_fmt rgb24 '" +
      raw.string() + "'");
  std::ifstream in(raw, std::ios::binary);
  in.seekg(static_cast<std::streamoff>((y * width + x) * 3));
  unsigned char p[3] = {};
  in.read(reinterpret_cast<char*>(p), 3);
  return {p[0], p[1], p[2]};
}

class X11RecorderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (display.missing()) GTEST_SKIP() << *display.missing();
    if (run("command -v ffprobe").empty()) GTEST_SKIP() << "ffprobe is not installed";
  }
  std::string probe(const fs::path& film, const std::string& entries) {
    return run("ffprobe -v error -select_streams v:0 -show_entries " + entries +
               " -of default=noprint_wrappers=1:nokey=1 '" + film.string() + "'");
  }
  test::VirtualDisplay display{320, 240};
  test::TempDir tmp;
};

}  // namespace

TEST_F(X11RecorderTest, FilmsTheScreenAndItsChangesWithTheFramesTimes) {
  PaintedWindow window(display.name(), 20, 20, 100, 80);
  X11Recorder camera(display.name());
  CaptureConfig capture;
  capture.fps = 10;
  const fs::path film = tmp / "take.mp4";
  camera.roll(film, capture);
  EXPECT_TRUE(camera.isRolling());
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  window.paint(0x0000ff);
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  const FilmedSpan span = camera.cut();
  EXPECT_FALSE(camera.isRolling());
  EXPECT_FALSE(camera.failure());

  EXPECT_GT(span.seconds, 1.0);
  EXPECT_LT(span.seconds, 3.0);
  EXPECT_GE(span.frames, 8);
  EXPECT_EQ(probe(film, "stream=codec_name,width,height"), "h264\n320\n240\n");
  // The file lasts what the frames' own times say, within a frame or two.
  EXPECT_NEAR(std::stod(probe(film, "format=duration")), span.seconds, 0.25);
  const Pixel first = pixelOf(film, 0, 60, 60, 320);
  const Pixel last = pixelOf(film, span.seconds - 0.3, 60, 60, 320);
  EXPECT_GT(first.r, 200);
  EXPECT_LT(first.b, 60);
  EXPECT_GT(last.b, 200);
  EXPECT_LT(last.r, 60);
}

TEST_F(X11RecorderTest, AWindowIsFoundByItsAppAndFilmedAtEvenSize) {
  PaintedWindow window(display.name(), 10, 10, 161, 121);
  std::string asked;
  X11Recorder camera(display.name(), [&](const std::string& app) {
    asked = app;
    return window.id();
  });
  CaptureConfig capture;
  capture.app = "painter";
  capture.fps = 10;
  camera.roll(tmp / "window.mp4", capture);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  camera.cut();
  EXPECT_EQ(asked, "painter");
  EXPECT_EQ(probe(tmp / "window.mp4", "stream=width,height"), "160\n120\n");
  const Pixel inside = pixelOf(tmp / "window.mp4", 0, 5, 5, 160);
  EXPECT_GT(inside.r, 200);

  // The finder's refusals are the user's sentences; nothing is filmed.
  X11Recorder lost(display.name(), [](const std::string& app) -> unsigned long { throw RecordError::noSuchApp(app); });
  try {
    lost.roll(tmp / "none.mp4", capture);
    FAIL() << "filmed an app that is not running";
  } catch (const RecordError& e) {
    EXPECT_STREQ(e.what(), "Couldn't find 'painter' to film — is it running?");
  }
  EXPECT_FALSE(fs::exists(tmp / "none.mp4"));
  // An unmapped window is there but shows nothing: it has no window to film.
  window.unmap();
  try {
    camera.roll(tmp / "unmapped.mp4", capture);
    FAIL() << "filmed an unmapped window";
  } catch (const RecordError& e) {
    EXPECT_EQ(e.kind, RecordError::Kind::noWindow);
  }
}

TEST_F(X11RecorderTest, TheCheckGivesEachVerdictWithinItsDeadline) {
  PaintedWindow window(display.name(), 0, 0, 50, 50);
  const X11Recorder camera(display.name());
  const auto began = std::chrono::steady_clock::now();
  const CameraVerdict screen = camera.check();
  EXPECT_EQ(CameraVerdict::name(screen.kind), "proven");
  EXPECT_LT(screen.secondsToFirstFrame, 3);
  EXPECT_EQ(CameraVerdict::name(camera.check(window.id()).kind), "proven");
  EXPECT_EQ(CameraVerdict::name(camera.check(0x3fffffff).kind), "noTarget");
  EXPECT_EQ(CameraVerdict::name(X11Recorder(":9999").check().kind), "noAccess");
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(6));

  X11Recorder nowhere(":9999");
  try {
    nowhere.roll(tmp / "x.mp4", std::nullopt);
    FAIL() << "rolled without a display";
  } catch (const RecordError& e) {
    EXPECT_EQ(e.kind, RecordError::Kind::noPermission);
  }
}

TEST_F(X11RecorderTest, AWindowThatGoesAwayEndsTheTakeWithAPlayableFilm) {
  auto window = std::make_unique<PaintedWindow>(display.name(), 10, 10, 100, 100);
  const unsigned long id = window->id();
  X11Recorder camera(display.name(), [&](const std::string&) { return id; });
  CaptureConfig capture;
  capture.app = "painter";
  capture.fps = 10;
  camera.roll(tmp / "gone.mp4", capture);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  window.reset();  // its client disconnects: the window is destroyed
  for (int i = 0; i < 200 && !camera.failure(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_TRUE(camera.failure());
  EXPECT_EQ(*camera.failure(), "the filmed window or display went away");
  const FilmedSpan span = camera.cut();
  EXPECT_GT(span.frames, 2);
  EXPECT_EQ(probe(tmp / "gone.mp4", "stream=codec_name"), "h264\n");
}

namespace {

// A PulseAudio server of the test's own with one silent sink, on a socket in `dir`.
class SoundServer {
 public:
  explicit SoundServer(const fs::path& dir) : socket_(dir / "native") {
    if (run("command -v pulseaudio").empty()) {
      missing_ = "pulseaudio is not installed (Debian package pulseaudio)";
      return;
    }
    const std::string env = "XDG_RUNTIME_DIR='" + dir.string() + "' HOME='" + dir.string() + "' ";
    run(env + "pulseaudio -n --daemonize=yes --exit-idle-time=-1 --use-pid-file=no -L 'module-null-sink "
              "sink_name=tavorin' -L 'module-native-protocol-unix socket=" + socket_.string() +
        " auth-anonymous=1' >/dev/null 2>&1");
    for (int i = 0; i < 50 && !fs::exists(socket_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (!fs::exists(socket_)) missing_ = "pulseaudio did not start";
  }
  ~SoundServer() {
    if (!missing_) run(server() + " pactl exit >/dev/null 2>&1");
  }
  std::string server() const { return "PULSE_SERVER='unix:" + socket_.string() + "'"; }
  std::string address() const { return "unix:" + socket_.string(); }
  const std::optional<std::string>& missing() const { return missing_; }

 private:
  fs::path socket_;
  std::optional<std::string> missing_;
};

}  // namespace

TEST_F(X11RecorderTest, TheDesktopsSoundGoesInBesideThePictureOrTheTakeSaysItIsSilent) {
  CaptureConfig capture;
  capture.fps = 10;
  capture.audio = true;
  {  // No sound server: the picture is filmed all the same, and the silence says why.
    test::ScopedEnv nowhere("PULSE_SERVER", "unix:" + (tmp / "nobody-here").string());
    X11Recorder camera(display.name());
    camera.roll(tmp / "silent.mp4", capture);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    camera.cut();
    EXPECT_NE(camera.silence().value_or("").find("there is no PulseAudio or PipeWire sound server"), std::string::npos)
        << camera.silence().value_or("");
    EXPECT_EQ(run("ffprobe -v error -select_streams a -show_entries stream=codec_name -of csv=p=0 '" +
                  (tmp / "silent.mp4").string() + "'"),
              "");
  }
  SoundServer sound(tmp / "pulse");
  if (sound.missing()) GTEST_SKIP() << *sound.missing();
  test::ScopedEnv server("PULSE_SERVER", sound.address());
  X11Recorder camera(display.name());
  const fs::path film = tmp / "take.mp4";
  camera.roll(film, capture);
  EXPECT_FALSE(camera.silence()) << *camera.silence();
  // A tone played on the desktop while the camera rolls.
  const fs::path tone = tmp / "tone.wav";
  run("ffmpeg -v error -f lavfi -i 'sine=frequency=440:duration=1.5' -ac 2 -ar 48000 '" + tone.string() + "'");
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  run(sound.server() + " paplay '" + tone.string() + "'");
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const FilmedSpan span = camera.cut();
  EXPECT_EQ(run("ffprobe -v error -select_streams a -show_entries stream=codec_name,sample_rate,channels -of "
                "csv=p=0 '" + film.string() + "'"),
            "aac,48000,2\n");
  // The sound is the tone, not silence.
  const std::string volume = run("ffmpeg -v info -i '" + film.string() + "' -map 0:a -af volumedetect -f null - 2>&1 | "
                                 "grep mean_volume");
  ASSERT_NE(volume.find("mean_volume:"), std::string::npos) << volume;
  EXPECT_GT(std::stod(volume.substr(volume.find("mean_volume:") + 12)), -30.0) << volume;
  // The sound lies inside the picture. (How closely it follows it depends on the
  // server's own latency, which on a loaded machine was over half a second.)
  const std::string times = run("ffprobe -v error -select_streams a -show_entries stream=start_time,duration -of "
                                "csv=p=0 '" + film.string() + "'");
  const double start = std::stod(times), length = std::stod(times.substr(times.find(',') + 1));
  EXPECT_GE(start, 0) << times;
  EXPECT_GT(length, 1.0) << times;
  EXPECT_LE(start + length, span.seconds + 0.1) << times;
}
