#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>

#include <future>
#include <optional>
#include <thread>

#include "app/service/LoopbackListener.hpp"

using namespace tavorin;
using namespace std::chrono_literals;

namespace {

// What the browser sees for one request to the listener; empty when nobody answers.
std::string browse(unsigned short port, const std::string& target) {
  const std::string command =
      "curl -s --max-time 5 'http://127.0.0.1:" + std::to_string(port) + target + "'";
  std::string out;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buffer[1024];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, p)) > 0;) out.append(buffer, n);
    pclose(p);
  }
  return out;
}

struct Outcome {
  std::optional<std::string> code;
  std::optional<std::string> failure;
};

// Runs the listener on an io_context of its own while `browser` makes its requests.
Outcome listen(std::chrono::steady_clock::duration limit, const std::function<void(unsigned short)>& browser) {
  asio::io_context context;
  LoopbackListener listener(context, "st8");
  Outcome outcome;
  asio::co_spawn(context, listener.code(limit), [&](std::exception_ptr e, std::string code) {
    if (!e) {
      outcome.code = code;
      return;
    }
    try {
      std::rethrow_exception(e);
    } catch (const std::exception& x) {
      outcome.failure = x.what();
    }
  });
  auto played = std::async(std::launch::async, [&] { browser(listener.port()); });
  context.run();
  played.get();
  return outcome;
}

}  // namespace

TEST(LoopbackListener, OnlyTheExpectedStateEndsTheWaitAndASecondRequestFindsNobody) {
  std::string stray, good, late;
  const Outcome o = listen(30s, [&](unsigned short port) {
    stray = browse(port, "/?code=stolen&state=guess");
    good = browse(port, "/?code=4%2Fabc&state=st8&scope=x");
    late = browse(port, "/?code=again&state=st8");
  });
  EXPECT_EQ(o.code, "4/abc");
  EXPECT_NE(stray.find("Tavorin did not ask for this."), std::string::npos);
  EXPECT_EQ(good, "Tavorin is connected. You can close this tab.");
  EXPECT_EQ(late, "");
}

TEST(LoopbackListener, GooglesRefusalAndAMissingCodeAreSaidInWords) {
  std::string page;
  Outcome o = listen(30s, [&](unsigned short port) { page = browse(port, "/?error=access_denied&state=st8"); });
  EXPECT_EQ(o.failure, "Google said: access_denied");
  EXPECT_NE(page.find("Google said: access_denied"), std::string::npos);
  o = listen(30s, [&](unsigned short port) { browse(port, "/?state=st8"); });
  EXPECT_EQ(o.failure, "no code came back from Google");
}

TEST(LoopbackListener, TheWaitIsBoundedEvenWhenAConnectionHangsHalfSent) {
  const Outcome o = listen(300ms, [](unsigned short port) {
    // A peer that connects and never finishes its request must not hold the wait open.
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    ASSERT_GT(::send(fd, "GET /?code=x", 12, 0), 0);
    std::this_thread::sleep_for(1s);
    ::close(fd);
  });
  EXPECT_EQ(o.failure, "the browser never came back. Press Connect and approve the page Google opens");
}
