// The surfaces drawn into an ImGui context of the test's own, with no window and no
// renderer: the pointer is moved and pressed by hand, frame by frame.
#include <gtest/gtest.h>
#include <imgui.h>

#include <cstdint>

#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/TakesStore.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "ui/Surfaces.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

constexpr double W = 1232, H = 752;

class SurfacesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Scope::resetForTesting();
    scripting.emplace("TAVORIN_SCRIPTING", std::nullopt);
    support.emplace("TAVORIN_SUPPORT", (tmp / "support").string());
    // Three lines four seconds apart, each two seconds long.
    Recording r("short", "Short");
    for (int k = 0; k < 3; ++k) {
      TimelineItem l("l" + std::to_string(k + 1), ItemType::line);
      l.text = "Line " + std::to_string(k + 1) + ".";
      l.start = 4.0 * k;
      l.duration = 2;
      r.timeline.push_back(l);
    }
    RecordingStore(tmp / "root/p/recordings/short").saveNewVersion(r, std::chrono::system_clock::now());
    model.emplace(actor, SessionStore(tmp / "support/session.json"), pasteboard);
    store.emplace(*model, Library(tmp / "root"), SessionStore(tmp / "support/session.json"), trash);
    store->openProduction(tmp / "root/p/recordings/short");
    store->go(Route::of(Page::edit));
    model->snapping = false;

    context = ImGui::CreateContext();
    ImGuiIO& io = ImGui::GetIO();
    io.IniFilename = nullptr;
    io.DisplaySize = ImVec2(float(W), float(H));
    io.DeltaTime = 1.0f / 60;
    surfaces.emplace(*store);
    surfaces->theme().loadFaces();
    unsigned char* pixels = nullptr;
    int w = 0, h = 0;
    io.Fonts->GetTexDataAsRGBA32(&pixels, &w, &h);
  }
  void TearDown() override {
    ImGui::DestroyContext(context);
    Scope::resetForTesting();
  }

  void frame() {
    ImGui::NewFrame();
    surfaces->draw(W, H, registry);
    ImGui::Render();
  }
  // The pointer to a point, pressed or not, over one frame.
  void pointer(double x, double y, bool down) {
    ImGuiIO& io = ImGui::GetIO();
    io.MousePos = ImVec2(float(x), float(y));
    io.MouseDown[0] = down;
    frame();
  }
  ElementRegistry::Frame at(const std::string& id) {
    const auto* e = registry.find(id);
    EXPECT_NE(e, nullptr) << id;
    return e ? e->frame : ElementRegistry::Frame{};
  }
  void click(const std::string& id) {
    const auto f = at(id);
    pointer(f.x + f.width / 2, f.y + f.height / 2, false);
    pointer(f.x + f.width / 2, f.y + f.height / 2, true);
    pointer(f.x + f.width / 2, f.y + f.height / 2, false);
  }
  double start(const std::string& id) {
    for (const auto& i : model->recording().timeline)
      if (i.id == id) return *i.start;
    return -1;
  }

  test::TempDir tmp;
  std::optional<test::ScopedEnv> scripting, support;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  FreedesktopTrash trash{tmp / "Trash"};
  std::optional<AppModel> model;
  std::optional<AppStore> store;
  std::optional<Surfaces> surfaces;
  ImGuiContext* context = nullptr;
  ElementRegistry registry;
};

}  // namespace

TEST_F(SurfacesTest, TheVoiceLaneDrawsEachLineWhereTheGeometryPutsIt) {
  frame();
  const TimelineGeometry g = model->geometry();
  const auto l1 = at("lane.voice.l1");
  const auto l2 = at("lane.voice.l2");
  // The blocks keep the geometry's spacing and widths: 4 s apart, 2 s wide less the seam.
  EXPECT_DOUBLE_EQ(l2.x - l1.x, 4 * g.pxPerSecond);
  EXPECT_DOUBLE_EQ(l1.width, 2 * g.pxPerSecond - 2);
  EXPECT_DOUBLE_EQ(l1.height, TimelineGeometry::blockHeight(TimelineGeometry::Lane::voice));
  EXPECT_EQ(registry.find("lane.voice.l1")->label, "Line 1.");
  // The lanes that hold nothing say so, and every lane has its title in the rail.
  EXPECT_NE(registry.find("lane.music.empty"), nullptr);
  EXPECT_NE(registry.find("lane.voice"), nullptr);
  EXPECT_EQ(registry.find("lane.voice")->label, "Audio");
}

TEST_F(SurfacesTest, ADragMovesALineByWhatThePointerTravelledAsOneUndoStep) {
  frame();
  const auto f = at("lane.voice.l2");
  const double x = f.x + 20, y = f.y + f.height / 2;
  pointer(x, y, false);
  pointer(x, y, true);
  // Half a second to the right at a hundred pixels a second, over a few frames.
  for (int k = 1; k <= 5; ++k) pointer(x + 10 * k, y, true);
  EXPECT_DOUBLE_EQ(start("l2"), 4);  // nothing lands until the hand lets go
  pointer(x + 50, y, false);
  EXPECT_NEAR(start("l2"), 4.5, 1e-9);
  EXPECT_EQ(model->selection(), std::vector<std::string>{"l2"});
  model->undo();
  EXPECT_DOUBLE_EQ(start("l2"), 4);
}

TEST_F(SurfacesTest, AClickPicksAndTheInspectorEditsThePick) {
  frame();
  EXPECT_EQ(registry.find("inspector.text"), nullptr);
  EXPECT_NE(registry.find("inspector.production.title"), nullptr);
  click("lane.voice.l3");
  EXPECT_EQ(model->selection(), std::vector<std::string>{"l3"});
  frame();
  EXPECT_NE(registry.find("inspector.text"), nullptr);
  EXPECT_EQ(registry.find("inspector.production.title"), nullptr);
  // A click on the ground empties the pick; the editor closes with it.
  const auto lane = at("lane.voice.l3");
  pointer(lane.x + lane.width + 40, lane.y + 10, false);
  pointer(lane.x + lane.width + 40, lane.y + 10, true);
  pointer(lane.x + lane.width + 40, lane.y + 10, false);
  EXPECT_TRUE(model->selection().empty());
}

TEST_F(SurfacesTest, TheTabsMoveThePageAndTheTopBarFollowsIt) {
  frame();
  EXPECT_EQ(registry.find("script.line.l1"), nullptr);
  click("nav.script");
  EXPECT_EQ(store->route().page, Page::script);
  frame();
  EXPECT_NE(registry.find("script.line.l1"), nullptr);
  EXPECT_EQ(registry.find("lane.voice.l1"), nullptr);
  click("nav.library");
  EXPECT_EQ(store->route().page, Page::library);
}

TEST_F(SurfacesTest, ShortcutsActOnThePickAndLeaveKeysToAFieldBeingTyped) {
  model->select({"l1"});
  EXPECT_FALSE(surfaces->shortcut(Surfaces::Key::remove, true));
  EXPECT_EQ(model->recording().timeline.size(), 3u);
  EXPECT_TRUE(surfaces->shortcut(Surfaces::Key::remove, false));
  EXPECT_EQ(model->recording().timeline.size(), 2u);
  EXPECT_TRUE(surfaces->shortcut(Surfaces::Key::undo, false));
  EXPECT_EQ(model->recording().timeline.size(), 3u);
  EXPECT_TRUE(surfaces->shortcut(Surfaces::Key::redo, false));
  EXPECT_EQ(model->recording().timeline.size(), 2u);
  EXPECT_FALSE(surfaces->shortcut(Surfaces::Key::play, true));
}

TEST_F(SurfacesTest, ARefusedActBecomesAFailureToastInTheModelsWords) {
  // Nothing is on the undo stack of a production just opened.
  const std::string words = test::refusal([&] { model->undo(); });
  surfaces->shortcut(Surfaces::Key::undo, false);
  ASSERT_FALSE(model->toasts().toasts().empty());
  const Toast& t = model->toasts().toasts().front();
  EXPECT_EQ(t.kind, Toast::Kind::failure);
  EXPECT_EQ(t.text, words);
  frame();
  EXPECT_NE(registry.find("toast." + t.id + ".dismiss"), nullptr);
}

namespace {

// Stands in for the window's decoder: notes what the monitor asks for and answers one
// texture of a 16:9 film.
struct NotedFeed final : MonitorFeed {
  struct Ask {
    std::filesystem::path film;
    double seconds = 0;
    int width = 0, height = 0;
  };
  std::vector<Ask> asks;
  int released = 0;
  std::optional<Image> show(const std::filesystem::path& film, double seconds, int width, int height) override {
    asks.push_back({film, seconds, width, height});
    return Image{reinterpret_cast<void*>(std::uintptr_t(7)), 1280, 720};
  }
  void release() override { ++released; }
  std::optional<std::string> failure() const override { return std::nullopt; }
};

// The UV corners of what was drawn with the feed's texture.
std::optional<std::pair<ImVec2, ImVec2>> pictureUV() {
  const ImDrawData* data = ImGui::GetDrawData();
  for (int n = 0; n < data->CmdListsCount; ++n) {
    const ImDrawList* list = data->CmdLists[n];
    for (const auto& cmd : list->CmdBuffer) {
      if (cmd.TextureId != reinterpret_cast<void*>(std::uintptr_t(7))) continue;
      ImVec2 lo(1e9f, 1e9f), hi(-1e9f, -1e9f);
      for (unsigned k = 0; k < cmd.ElemCount; ++k) {
        const ImVec2 uv = list->VtxBuffer[list->IdxBuffer[int(cmd.IdxOffset + k)]].uv;
        lo = ImVec2(std::min(lo.x, uv.x), std::min(lo.y, uv.y));
        hi = ImVec2(std::max(hi.x, uv.x), std::max(hi.y, uv.y));
      }
      return std::make_pair(lo, hi);
    }
  }
  return std::nullopt;
}

}  // namespace

TEST_F(SurfacesTest, TheMonitorAsksForTheFilesTimeThroughTheCutAndShowsTheZoomsPart) {
  // A take with a second and a half of slate, ten seconds of footage after it.
  const fs::path production = tmp / "root/p/recordings/short";
  TakesStore takes(production);
  Take take;
  take.id = "20260101-000000";
  take.video = "film.mp4";
  take.pads = Take::Pads(1.5, 0);
  takes.begin(take);
  test::writeFile(takes.video(take), "film");
  takes.finish(take, 11.5, Take::Status::complete);
  // Two seconds of footage from 2 s at double speed, then 6 s to 8 s; a zoom at twice
  // the size on the top left corner over the second half of the first segment.
  Recording r = model->recording();
  r.segments = std::vector<Segment>{{"s1", take.id, 2, 4, 2.0}, {"s2", take.id, 6, 8, std::nullopt}};
  Zoom z;
  z.id = "z1";
  z.from = 0.5;
  z.to = 2.5;
  z.scale = 2;
  z.anchor = Zoom::Anchor{0, 0};
  r.zooms = std::vector<Zoom>{z};
  model->setRecording(r);
  NotedFeed feed;
  surfaces->setMonitorFeed(&feed);

  model->setPlayhead(0.25);
  frame();
  ASSERT_EQ(feed.asks.size(), 1u);
  EXPECT_EQ(feed.asks.back().film, takes.video(take));
  EXPECT_DOUBLE_EQ(feed.asks.back().seconds, 1.5 + 2 + 0.25 * 2);
  const auto monitor = at("monitor.picture");
  // Unzoomed: the whole picture, decoded at the size it is drawn.
  EXPECT_NEAR(feed.asks.back().width, monitor.width, 1);
  EXPECT_NEAR(feed.asks.back().height, monitor.height, 1);
  auto uv = pictureUV();
  ASSERT_TRUE(uv);
  EXPECT_FLOAT_EQ(uv->first.x, 0);
  EXPECT_FLOAT_EQ(uv->second.y, 1);

  // Deep in the zoom, past the seam: the second segment, the top left quarter, at twice the size.
  model->setPlayhead(1.5);
  frame();
  EXPECT_DOUBLE_EQ(feed.asks.back().seconds, 1.5 + 6 + 0.5);
  EXPECT_NEAR(feed.asks.back().width, 2 * monitor.width, 2);
  uv = pictureUV();
  ASSERT_TRUE(uv);
  EXPECT_FLOAT_EQ(uv->first.x, 0);
  EXPECT_FLOAT_EQ(uv->first.y, 0);
  EXPECT_FLOAT_EQ(uv->second.x, 0.5f);
  EXPECT_FLOAT_EQ(uv->second.y, 0.5f);

  // With the take off the monitor, the film is let go and nothing is drawn from it.
  model->clearMonitor();
  frame();
  EXPECT_GE(feed.released, 1);
  EXPECT_FALSE(pictureUV());
  surfaces->setMonitorFeed(nullptr);
}

TEST_F(SurfacesTest, TheFetchSheetSendsWhatWasTypedAndStaysOutOfTheWayWhenClosed) {
  std::vector<AppStore::FetchAsk> asked;
  store->fetchMusic = [&](const AppStore::FetchAsk& ask) { asked.push_back(ask); };
  frame();
  click("topbar.fetch");
  ASSERT_TRUE(store->showingFetchSheet);
  frame();
  EXPECT_FALSE(registry.find("fetch.go")->enabled);  // nothing typed, nothing to fetch
  store->fetchAsk = {"https://www.youtube.com/watch?v=x", 90, std::nullopt};
  frame();
  click("fetch.go");
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].url, "https://www.youtube.com/watch?v=x");
  EXPECT_EQ(asked[0].start, 90);
  EXPECT_EQ(asked[0].end, std::nullopt);
  click("fetch.dismiss");
  EXPECT_FALSE(store->showingFetchSheet);
  frame();
  EXPECT_EQ(registry.find("fetch.url"), nullptr);
}
