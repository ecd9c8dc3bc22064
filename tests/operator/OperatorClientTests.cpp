#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Loopback.hpp"
#include "TestSupport.hpp"
#include "operator/OperatorClient.hpp"
#include "operator/OperatorWire.hpp"

using namespace tavorin;
using ClientError = OperatorClient::ClientError;

namespace {

// A peer that answers one request with `reply`, keeping what it was sent.
struct FakePeer {
  explicit FakePeer(std::string reply)
      : server([this, reply = std::move(reply)](const std::string& line) {
          received = line;
          return reply;
        }) {}
  int port() const { return server.port(); }
  std::string received;
  test::LoopbackServer server;
};

}  // namespace

TEST(OperatorClient, SendsTheTokenAndReadsALongAnswerWhole) {
  const std::string big(10000, 'x');
  FakePeer peer(OperatorWire::encodeLine(OperatorResult::success(JSONValue::object({{"big", big}}))));
  OperatorClient client("127.0.0.1", peer.port(), "secret");
  const auto result = client.send(OperatorCommand{"ping", {{"k", "v"}}});
  ASSERT_TRUE(result.ok);
  EXPECT_EQ((*result.data)["big"]->stringValue(), big);
  const auto sent = OperatorWire::decodeRequest(peer.received);
  EXPECT_EQ(sent.token, "secret");
  EXPECT_EQ(sent.command, (OperatorCommand{"ping", {{"k", "v"}}}));
}

TEST(OperatorClient, APeerThatClosesEarlyIsABadResponse) {
  FakePeer peer("{\"ok\":tr");
  OperatorClient client("127.0.0.1", peer.port(), "t");
  try {
    client.send(OperatorCommand{"ping", {}});
    FAIL() << "expected badResponse";
  } catch (const ClientError& e) {
    EXPECT_EQ(e.kind, ClientError::Kind::badResponse);
    EXPECT_STREQ(e.what(), "the operator server returned an unreadable response");
  }
}

TEST(OperatorClient, AWholeAnswerWithoutItsLineFeedStillCounts) {
  FakePeer peer("{\"ok\":false,\"error\":\"no\"}");
  OperatorClient client("127.0.0.1", peer.port(), "t");
  EXPECT_EQ(client.send(OperatorCommand{"ping", {}}), OperatorResult::failure("no"));
}

TEST(OperatorClient, ABadHostOrAClosedPortFailsToConnect) {
  try {
    OperatorClient("not-an-address", 1, "t").roundTrip("x\n");
    FAIL();
  } catch (const ClientError& e) {
    EXPECT_STREQ(e.what(), "connect: bad host not-an-address");
  }
  // Bind a port and release it, so nothing listens there.
  int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t len = sizeof a;
  ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
  ::close(s);
  try {
    OperatorClient("127.0.0.1", ntohs(a.sin_port), "t").roundTrip("x\n");
    FAIL();
  } catch (const ClientError& e) {
    EXPECT_EQ(e.kind, ClientError::Kind::connectFailed);
    EXPECT_EQ(std::string(e.what()).rfind("connect: ", 0), 0u);
  }
}

TEST(OperatorClient, ControlFileStates) {
  test::TempDir dir;
  // No file at all: not running.
  try {
    OperatorClient::fromControlFile(dir / "operator.json");
    FAIL();
  } catch (const ClientError& e) {
    EXPECT_EQ(e.kind, ClientError::Kind::notRunning);
  }
  // A file that doesn't decode: not running either.
  test::writeFile(dir / "garbled.json", "{not json");
  EXPECT_THROW(OperatorClient::fromControlFile(dir / "garbled.json"), ClientError);

  // A dead pid: stale, and the file stays where it is.
  OperatorControlFile{1, "127.0.0.1", 5, "t", 0x3FFFFFF0}.write(dir / "dead.json");
  try {
    OperatorClient::fromControlFile(dir / "dead.json");
    FAIL();
  } catch (const ClientError& e) {
    EXPECT_EQ(e.kind, ClientError::Kind::stale);
    EXPECT_STREQ(e.what(), "found a control file from a dead launch (pid 1073741808); Tavorin is not running");
  }
  EXPECT_TRUE(std::filesystem::exists(dir / "dead.json"));

  // A live pid: the client takes host, port and token.
  OperatorControlFile{1, "127.0.0.1", 5, "tok", static_cast<std::int32_t>(::getpid())}.write(dir / "live.json");
  const auto client = OperatorClient::fromControlFile(dir / "live.json");
  EXPECT_EQ(client.port, 5);
  EXPECT_EQ(client.token, "tok");
}
