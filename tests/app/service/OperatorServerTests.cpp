#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>
#include <algorithm>
#include <cctype>
#include <functional>
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

namespace {

int rawConnect(int port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
  return fd;
}

int openDescriptors() {
  int n = 0;
  for ([[maybe_unused]] const auto& e : fs::directory_iterator("/proc/self/fd")) ++n;
  return n;
}

// Polls `done` until it holds or five seconds pass.
bool eventually(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace

TEST_F(OperatorServerTest, AClientThatHangsUpWithoutReadingIsReleased) {
  const int before = openDescriptors();
  for (int round = 0; round < 20; ++round) {
    const int fd = rawConnect(port_);
    std::string many;
    for (int i = 0; i < 50; ++i) many += request("good-token", "status");
    ASSERT_EQ(::send(fd, many.data(), many.size(), MSG_NOSIGNAL), static_cast<ssize_t>(many.size()));
    // A reset rather than a polite close: the answers' writes fail.
    linger hard{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    ::close(fd);
  }
  EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }))
      << openDescriptors() << " descriptors open, " << before << " before";
  Peer after(port_);
  after.write(request("good-token", "ping"));
  EXPECT_EQ(after.line(), pong);
}

TEST_F(OperatorServerTest, AClientThatNeverReadsIsHeldBackAndLosesNothing) {
  const int fd = rawConnect(port_);
  ::fcntl(fd, F_SETFL, O_NONBLOCK);
  std::string batch;
  for (int i = 0; i < 1000; ++i) batch += request("good-token", "ping");
  // Write until the server stops taking lines: it must, long before 64 MiB.
  long sent = 0;
  std::size_t offset = 0;
  for (;;) {
    const ssize_t n = ::send(fd, batch.data() + offset, batch.size() - offset, MSG_NOSIGNAL);
    if (n > 0) {
      offset += static_cast<std::size_t>(n);
      if (offset == batch.size()) offset = 0, sent += 1000;
      ASSERT_LT(sent * static_cast<long>(batch.size() / 1000), 64L << 20) << "the server never pushed back";
      continue;
    }
    ASSERT_EQ(errno, EAGAIN);
    pollfd p{fd, POLLOUT, 0};
    if (::poll(&p, 1, 500) == 0) break;  // held back for half a second
  }
  const long lines = sent + static_cast<long>(std::count(batch.begin(), batch.begin() + offset, '\n'));
  // Now read: every line written has its answer, and the rest of a cut line waits.
  const std::string tail = batch.substr(offset, batch.find('\n', offset) + 1 - offset);
  long answers = 0;
  std::string carry;
  char buf[65536];
  bool tailSent = offset % (batch.size() / 1000) == 0;
  while (answers < lines + (tailSent ? 0 : 1)) {
    pollfd p{fd, static_cast<short>(POLLIN | (tailSent ? 0 : POLLOUT)), 0};
    ASSERT_GT(::poll(&p, 1, 5000), 0) << answers << " of " << lines << " answers";
    if (!tailSent && (p.revents & POLLOUT)) {
      ASSERT_EQ(::send(fd, tail.data(), tail.size(), MSG_NOSIGNAL), static_cast<ssize_t>(tail.size()));
      tailSent = true;
    }
    if (!(p.revents & POLLIN)) continue;
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    ASSERT_GT(n, 0);
    carry.append(buf, static_cast<std::size_t>(n));
    std::size_t at = 0;
    for (std::size_t lf; (lf = carry.find('\n', at)) != std::string::npos; at = lf + 1) {
      ASSERT_EQ(carry.substr(at, lf + 1 - at), pong);
      ++answers;
    }
    carry.erase(0, at);
  }
  ::close(fd);
}

TEST_F(OperatorServerTest, ALineOverSixteenMebibytesIsRefusedAndTheConnectionGoesOn) {
  Peer p(port_);
  p.write(R"({"token":"good-token","command":{"verb":"ping","args":{"pad":")" + std::string(17u << 20, 'p') +
          "\"}}}\n");
  EXPECT_EQ(p.line(), malformed);
  p.write(request("good-token", "ping"));
  EXPECT_EQ(p.line(), pong);
}

TEST_F(OperatorServerTest, DeepNestingIsAMalformedRequestNotACrash) {
  Peer p(port_);
  p.write(std::string(100000, '[') + std::string(100000, ']') + "\n");
  EXPECT_EQ(p.line(), malformed);
  const std::string deepArg = R"({"token":"good-token","command":{"verb":"ping","args":{"a":)" +
                              std::string(30000, '[') + std::string(30000, ']') + "}}}\n";
  p.write(deepArg);
  EXPECT_EQ(p.line(), malformed);
  p.write(request("good-token", "ping"));
  EXPECT_EQ(p.line(), pong);
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

TEST(OperatorServerToken, IsAFreshVersion4UUIDEachTime) {
  const std::string a = freshUUID(), b = freshUUID();
  EXPECT_NE(a, b);
  for (const std::string& u : {a, b}) {
    ASSERT_EQ(u.size(), 36u) << u;
    for (std::size_t i = 0; i < u.size(); ++i) {
      if (i == 8 || i == 13 || i == 18 || i == 23) EXPECT_EQ(u[i], '-') << u;
      else EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(u[i])) || (u[i] >= 'A' && u[i] <= 'F')) << u;
    }
    EXPECT_EQ(u[14], '4') << u;
    EXPECT_NE(std::string("89AB").find(u[19]), std::string::npos) << u;
  }
}
