#include <gtest/gtest.h>
#include <unistd.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>
#include <thread>

#include "Loopback.hpp"
#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/AppStore.hpp"
#include "app/process/AsioMainActor.hpp"
#include "app/process/WorkerPool.hpp"
#include "app/service/OperatorServer.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Pasteboard.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "operator/OperatorControlFile.hpp"
#include "operator/OperatorWire.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

const std::string malformed = "{\"error\":\"malformed request (expected one JSON line)\",\"ok\":false}\n";
const std::string unauthorized = "{\"error\":\"unauthorized: bad token\",\"ok\":false}\n";
const std::string pong = "{\"data\":{\"pong\":true},\"ok\":true}\n";

std::string request(const std::string& token, const std::string& verb) {
  return R"({"token":")" + token + R"(","command":{"verb":")" + verb + R"(","args":{}}})" "\n";
}

using Peer = test::LineClient;

class OperatorServerTest : public ::testing::Test {
 protected:
  OperatorServerTest()
      : xdg_("XDG_DATA_HOME", (dir_ / "data").string()),
        actor_(context_),
        model_(actor_, workers_, SessionStore(dir_ / "support/session.json"), pasteboard_),
        store_(model_, Library(dir_ / "root"), SessionStore(dir_ / "support/session.json"), trash_),
        service_(store_, [] {}),
        server_(context_, service_, "good-token") {}

  void SetUp() override {
    port_ = server_.start(true);
    work_.emplace(context_.get_executor());
    thread_ = std::thread([this] { context_.run(); });
  }
  void TearDown() override {
    // Stop on the actor's own thread, as the application does.
    std::promise<void> stopped;
    asio::post(context_, [&] {
      server_.stop();
      stopped.set_value();
    });
    stopped.get_future().wait();
    work_.reset();
    context_.stop();
    thread_.join();
  }

  test::TempDir dir_;
  test::ScopedEnv xdg_;
  asio::io_context context_;
  AsioMainActor actor_;
  WorkerPool workers_{context_, 1};
  MemoryPasteboard pasteboard_;
  FreedesktopTrash trash_{dir_ / "Trash"};
  AppModel model_;
  AppStore store_;
  OperatorService service_;
  OperatorServer server_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work_;
  std::thread thread_;
  int port_ = 0;
};

}  // namespace

TEST_F(OperatorServerTest, PublishesAPrivateControlFileNamingThisLaunch) {
  const fs::path file = dir_ / "data/Tavorin/operator.json";
  ASSERT_EQ(server_.controlFileURL(), file);
  const auto control = OperatorControlFile::read(file);
  EXPECT_EQ(control.version, 1);
  EXPECT_EQ(control.host, "127.0.0.1");
  EXPECT_EQ(control.port, port_);
  EXPECT_EQ(control.token, "good-token");
  EXPECT_EQ(control.pid, ::getpid());
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(OperatorServerTest, BadLinesAreAnsweredAndTheConnectionGoesOn) {
  Peer p(port_);
  for (const char* bad : {"\n", "   \n", "null\n", "[]\n",
                          "{\"token\":\"good-token\",\"command\":{\"verb\":\"ping\",\"args\":{\"n\":1}}}\n"}) {
    p.write(bad);
    EXPECT_EQ(p.line(), malformed) << bad;
  }
  p.write(request("wrong", "ping"));
  EXPECT_EQ(p.line(), unauthorized);
  p.write(request("good-token", "ping"));
  EXPECT_EQ(p.line(), pong);
}

TEST_F(OperatorServerTest, FramingAcrossWrites) {
  Peer p(port_);
  // Two requests in one write: both answered.
  p.write(request("good-token", "ping") + request("good-token", "where"));
  EXPECT_EQ(p.line(), pong);
  EXPECT_EQ(p.line(), "{\"data\":{\"where\":\"library\"},\"ok\":true}\n");

  // One request split over many writes: answered once, when its line feed comes.
  const std::string r = request("good-token", "ping");
  for (char c : r) {
    p.write(std::string(1, c));
    if (c != '\n') std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  EXPECT_EQ(p.line(), pong);

  // CR LF: the carriage return goes with the line feed.
  std::string crlf = request("good-token", "ping");
  crlf.insert(crlf.size() - 1, "\r");
  p.write(crlf);
  EXPECT_EQ(p.line(), pong);
}

TEST_F(OperatorServerTest, ALineLongerThanOneReadIsAccepted) {
  Peer p(port_);
  const std::string padding(200000, 'p');
  p.write(R"({"token":"good-token","command":{"verb":"ping","args":{"pad":")" + padding + "\"}}}\n");
  EXPECT_EQ(p.line(), pong);
}

TEST_F(OperatorServerTest, ALineThatIsNotUTF8GetsSilence) {
  Peer p(port_);
  p.write("{\"token\":\"\xff\"}\n");
  p.write(request("good-token", "ping"));
  // The first answer on the wire is the ping's: the bad line got none.
  EXPECT_EQ(p.line(), pong);
}

TEST_F(OperatorServerTest, ServingGoesOnWhenTheControlFileIsDeletedByHand) {
  fs::remove(dir_ / "data/Tavorin/operator.json");
  Peer p(port_);
  p.write(request("good-token", "ping"));
  EXPECT_EQ(p.line(), pong);
  // TearDown's stop must swallow the missing file.
}

TEST_F(OperatorServerTest, AnswersAreWrittenBeforeAHalfClosedConnectionEnds) {
  Peer p(port_);
  p.write(request("good-token", "ping") + request("good-token", "status"));
  p.shutdownWrite();
  EXPECT_EQ(p.line(), pong);
  EXPECT_NE(p.line().find("\"route\":\"library\""), std::string::npos);
  EXPECT_TRUE(p.closedByPeer());
}

TEST_F(OperatorServerTest, UnknownVerbsNameTheSpellingSent) {
  Peer p(port_);
  p.write(request("good-token", "PING"));
  EXPECT_EQ(p.line(), "{\"error\":\"unknown verb 'PING'. Try: tavorinctl verbs\",\"ok\":false}\n");
}

TEST(OperatorServerRespond, WorksWithoutASocket) {
  asio::io_context context;
  AsioMainActor actor(context);
  test::TempDir dir;
  MemoryPasteboard pasteboard;
  FreedesktopTrash trash(dir / "Trash");
  WorkerPool workers(context, 1);
  AppModel model(actor, workers, SessionStore(dir / "session.json"), pasteboard);
  AppStore store(model, Library(dir / "root"), SessionStore(dir / "session.json"), trash);
  OperatorService service(store, [] {});
  OperatorServer server(context, service, "tok");
  auto answer = asio::co_spawn(context, server.respond(request("tok", "where")), asio::use_future);
  context.run();
  EXPECT_EQ(answer.get(), "{\"data\":{\"where\":\"library\"},\"ok\":true}\n");
  EXPECT_FALSE(server.port());
}

TEST(OperatorServerToken, IsTwoFreshUUIDs) {
  const std::string a = freshUUID(), b = freshUUID();
  EXPECT_EQ(a.size(), 36u);
  EXPECT_NE(a, b);
  EXPECT_EQ((a + b).size(), 72u);
  EXPECT_EQ(a[14], '4');
}
