// An export armed for YouTube, carried on to Google's resumable upload, with the sign-in
// in between when the studio holds no token: the service over a fake Google, its model
// on a manual actor, one io_context for every verb so that a sign-in outlives its verb.
#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>

#include <future>

#include "../publish/FakeGoogle.hpp"
#include "Loopback.hpp"
#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/TakesStore.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using test::browse;
using test::queryItem;

namespace {

// Ends when the test says, leaving the bytes it is given where ffmpeg would.
struct FinishingExporter : FilmExporter {
  Phase state = Phase::idle;
  std::optional<fs::path> out;

  fs::path start(const Job& j) override {
    state = Phase::running;
    out = j.base / "export" / (j.name + ".mp4");
    return *out;
  }
  void cancel() override { state = Phase::idle; }
  void forgetFinished() override { state = Phase::idle; }
  void forgetOutput() override { out.reset(); }
  Phase phase() const override { return state; }
  double progress() const override { return state == Phase::done ? 1 : 0; }
  std::optional<fs::path> output() const override { return out; }
  std::optional<std::string> failure() const override { return std::nullopt; }
  std::vector<std::string> skipped() const override { return {}; }
  std::vector<std::vector<std::string>> lastPasses() const override { return {}; }

  void finish(const std::string& bytes) {
    test::writeFile(*out, bytes);
    state = Phase::done;
    if (onEnd) onEnd(state);
  }
};

class OperatorServicePublishTest : public ::testing::Test {
 protected:
  OperatorServicePublishTest()
      : support("TAVORIN_SUPPORT", (tmp / "support").string()),
        endpoint("TAVORIN_GOOGLE", google.url()),
        model(actor, SessionStore(tmp / "support/session.json"), pasteboard),
        store(model, Library(tmp / "root"), SessionStore(tmp / "support/session.json"), trash),
        service(store, [] {}) {
    Scope::resetForTesting();
    auto owned = std::make_unique<FinishingExporter>();
    exporter = owned.get();
    model.useExporter(std::move(owned));
    service.outside().openBrowser = [this](const std::string& url) { opened = url; };
    test::writeFile(tmp / "support/youtube-client.json", R"({"installed":{"client_id":")" + google.clientId +
                                                             R"(","client_secret":")" + google.clientSecret + R"("}})");
  }

  // One turn of everything that runs on the test's thread: the verbs' context, and the
  // actor with the work it was handed.
  void turn() {
    context.restart();
    context.poll();
    actor.drain();
  }
  bool pumpUntil(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      turn();
      std::this_thread::yield();
    }
    return true;
  }
  OperatorResult call(const std::string& verb, std::map<std::string, std::string> args = {}) {
    auto future = asio::co_spawn(context, service.handle(OperatorCommand{verb, std::move(args)}), asio::use_future);
    EXPECT_TRUE(pumpUntil([&] { return future.wait_for(0s) == std::future_status::ready; })) << verb;
    return future.get();
  }
  JSONValue data(const std::string& verb, std::map<std::string, std::string> args = {}) {
    const auto r = call(verb, std::move(args));
    EXPECT_TRUE(r.ok) << verb << ": " << r.error.value_or("");
    return r.data.value_or(JSONValue());
  }
  std::string publishState() { return *data("publish.status")["state"]->stringValue(); }

  // A production with a complete take and the export sheet armed for YouTube.
  void armed() {
    data("project.create", {{"name", "Films"}});
    data("recording.new", {{"title", "Launch"}});
    Take take;
    take.id = "t1";
    take.startedAt = "2026-02-16T09:45:01Z";
    take.seconds = 2;
    take.video = "take.mp4";
    take.fromVersion = "v0001";
    take.scheduleDigest = "d";
    take.status = Take::Status::complete;
    const fs::path film = TakesStore(*model.baseDir()).begin(take) / take.video;
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc=size=160x120:rate=10 -t 1 -pix_fmt yuv420p '" +
                           film.string() + "'").c_str()), 0);
    // The sheet raised for YouTube arms the destination, once and for the production.
    const JSONValue flow = data("export.youtube");
    EXPECT_EQ(*flow["exportSheetArmed"], JSONValue(true));
    EXPECT_EQ(model.events().back(), "export sheet up, armed for YouTube");
    EXPECT_EQ(model.exportTarget().effectiveDestination(), ExportDestination::youtube);
  }
  // An armed export that ended without a token, and the sign-in it waits for begun.
  void uploadWaitingForSignIn() {
    armed();
    data("export");
    exporter->finish("film");
    turn();
    data("youtube.connect");
    ASSERT_EQ(publishState(), "connecting");
  }
  void saveToken() {
    YouTubeToken token{google.access, google.refreshToken, std::chrono::system_clock::now() + 1h};
    test::writeFile(tmp / "support/youtube.json", token.encoded());
  }
  bool heard(const std::string& event) {
    const auto& events = model.events();
    return std::find(events.begin(), events.end(), event) != events.end();
  }

  test::TempDir tmp;
  test::ScopedEnv support;
  test::FakeGoogle google;
  test::ScopedEnv endpoint;
  asio::io_context context;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  FreedesktopTrash trash{tmp / "Trash"};
  AppModel model;
  AppStore store;
  OperatorService service;
  FinishingExporter* exporter = nullptr;
  std::string opened;  // the page the "browser" was asked to show
};

}  // namespace

TEST_F(OperatorServicePublishTest, AnExportArmedForYouTubeUploadsItselfWhenItEnds) {
  saveToken();
  armed();
  data("youtube.privacy", {{"privacy", "unlisted"}});
  data("export");
  EXPECT_EQ(publishState(), "idle");  // nothing goes up before the film is whole
  const std::string film(3 * 1024 * 1024 + 17, 'f');
  exporter->finish(film);
  turn();
  ASSERT_TRUE(pumpUntil([&] { return publishState() != "uploading"; }));

  const JSONValue status = data("publish.status");
  ASSERT_EQ(*status["state"]->stringValue(), "done") << status.encode();
  EXPECT_EQ(*status["url"]->stringValue(), "https://www.youtube.com/watch?v=vid-42");
  EXPECT_EQ(*status["file"]->stringValue(), (*model.baseDir() / "export/launch.mp4").string());
  EXPECT_EQ(google.received, film);
  EXPECT_TRUE(google.violations.empty()) << google.violations.front();
  EXPECT_EQ(google.metadata["snippet"]["title"], "Launch");
  EXPECT_EQ(google.metadata["status"]["privacyStatus"], "unlisted");
  EXPECT_TRUE(heard("publishing Launch to YouTube, unlisted"));
  EXPECT_TRUE(heard("published: vid-42"));
  EXPECT_EQ(model.toasts().toasts().front().kind, Toast::Kind::upload);

  // A film for another destination goes nowhere near Google.
  data("export.destination", {{"to", "file"}});
  data("export");
  exporter->finish("not for YouTube");
  turn();
  EXPECT_EQ(google.received, film);
  EXPECT_EQ(publishState(), "done");
  // The news stands until the finished export is put aside.
  data("export.dismiss");
  EXPECT_EQ(publishState(), "idle");
  EXPECT_TRUE(data("publish.status")["url"]->isNull());
}

TEST_F(OperatorServicePublishTest, AnUploadWithoutATokenConnectsFirstThenGoesOnItsOwn) {
  armed();
  data("export");
  exporter->finish("a film of a few bytes");
  turn();
  JSONValue status = data("publish.status");
  EXPECT_EQ(*status["state"]->stringValue(), "needsCredentials");
  EXPECT_EQ(*(*status["button"])["label"]->stringValue(), "Connect YouTube");
  EXPECT_TRUE(google.received.empty());

  data("youtube.connect");
  status = data("publish.status");
  EXPECT_EQ(*status["state"]->stringValue(), "connecting");
  EXPECT_EQ(*(*status["button"])["takesClicks"]->boolValue(), false);
  ASSERT_FALSE(opened.empty());
  // A publish asked for meanwhile is refused: the held one goes first.
  EXPECT_EQ(call("publish.youtube").error, "an upload is already running");

  auto page = std::async(std::launch::async, [&] {
    return browse(queryItem(opened, "redirect_uri") + "/?code=" + google.code + "&state=" + queryItem(opened, "state"));
  });
  std::vector<std::string> seen{"connecting"};
  ASSERT_TRUE(pumpUntil([&] {
    const std::string now = publishState();
    if (now != seen.back()) seen.push_back(now);
    return now == "done" || now == "failed";
  }));
  EXPECT_EQ(page.get(), "Tavorin is connected. You can close this tab.");
  EXPECT_EQ(seen.back(), "done") << data("publish.status").encode();
  EXPECT_EQ(seen.front(), "connecting");
  EXPECT_EQ(google.received, "a film of a few bytes");
  EXPECT_EQ(*data("youtube")["state"]->stringValue(), "connected");
}

TEST_F(OperatorServicePublishTest, ASignInThatFailsFailsTheHeldUploadAndSendsNothing) {
  uploadWaitingForSignIn();
  auto page = std::async(std::launch::async, [&] {
    return browse(queryItem(opened, "redirect_uri") + "/?error=access_denied&state=" + queryItem(opened, "state"));
  });
  ASSERT_TRUE(pumpUntil([&] { return publishState() != "connecting"; }));
  page.get();
  const JSONValue status = data("publish.status");
  EXPECT_EQ(*status["state"]->stringValue(), "failed");
  EXPECT_EQ(*status["failure"]->stringValue(), "YouTube connect failed: Google said: access_denied");
  EXPECT_TRUE(heard("YouTube connect failed: Google said: access_denied"));
  EXPECT_TRUE(google.received.empty());
  // Another production starts with no upload's news.
  data("recording.new", {{"title", "Other"}});
  EXPECT_EQ(publishState(), "idle");
}

TEST_F(OperatorServicePublishTest, CancelDropsAnUploadWaitingForItsSignIn) {
  uploadWaitingForSignIn();
  data("export.cancel");
  EXPECT_EQ(publishState(), "idle");
  EXPECT_TRUE(heard("upload cancelled"));
  // The sign-in still lands, and sends nothing of its own.
  auto page = std::async(std::launch::async, [&] {
    return browse(queryItem(opened, "redirect_uri") + "/?code=" + google.code + "&state=" + queryItem(opened, "state"));
  });
  ASSERT_TRUE(pumpUntil([&] { return *data("youtube")["state"]->stringValue() == "connected"; }));
  page.get();
  EXPECT_EQ(publishState(), "idle");
  EXPECT_TRUE(google.received.empty());
}
