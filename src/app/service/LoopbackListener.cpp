#include "app/service/LoopbackListener.hpp"

#include <asio/redirect_error.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/streambuf.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>

#include "kit/RedirectRequest.hpp"

#include <stdexcept>

namespace tavorin {

namespace {

constexpr size_t requestLimit = 4096;
const char* neverCameBack = "the browser never came back. Press Connect and approve the page Google opens";

void hangUp(asio::ip::tcp::socket& socket) {
  asio::error_code ignored;
  socket.shutdown(asio::socket_base::shutdown_both, ignored);
  socket.close(ignored);
}

std::string page(int status, const std::string& text) {
  return "HTTP/1.1 " + std::to_string(status) + (status == 200 ? " OK" : " Bad Request") +
         "\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(text.size()) +
         "\r\nConnection: close\r\n\r\n" + text;
}

// Answers the browser and hangs up. Arguments are taken by value: they must live in the
// coroutine's own frame across the write.
asio::awaitable<void> answer(std::shared_ptr<asio::ip::tcp::socket> socket, int status, std::string text) {
  const std::string reply = page(status, text);
  asio::error_code ignored;
  co_await asio::async_write(*socket, asio::buffer(reply), asio::redirect_error(asio::use_awaitable, ignored));
  hangUp(*socket);
}

}  // namespace

struct LoopbackListener::Impl {
  asio::io_context& context;
  asio::ip::tcp::acceptor acceptor;
  std::string state;
  bool expired = false;

  Impl(asio::io_context& c, std::string s) : context(c), acceptor(c), state(std::move(s)) {}
};

LoopbackListener::LoopbackListener(asio::io_context& context, std::string expectedState)
    : impl_(std::make_shared<Impl>(context, std::move(expectedState))) {
  asio::error_code ec;
  const asio::ip::tcp::endpoint where(asio::ip::make_address_v4("127.0.0.1"), 0);
  impl_->acceptor.open(where.protocol(), ec);
  if (ec) throw std::runtime_error("no socket for the redirect");
  impl_->acceptor.set_option(asio::socket_base::reuse_address(true), ec);
  impl_->acceptor.bind(where, ec);
  if (!ec) impl_->acceptor.listen(1, ec);
  if (ec) throw std::runtime_error("could not listen for the redirect");
}

LoopbackListener::~LoopbackListener() { close(); }

unsigned short LoopbackListener::port() const {
  asio::error_code ec;
  return impl_->acceptor.local_endpoint(ec).port();
}

const std::string& LoopbackListener::state() const { return impl_->state; }

void LoopbackListener::close() {
  asio::error_code ec;
  impl_->acceptor.close(ec);
}

asio::awaitable<std::string> LoopbackListener::code(std::chrono::steady_clock::duration limit) {
  auto impl = impl_;
  asio::steady_timer deadline(impl->context, limit);
  std::shared_ptr<asio::ip::tcp::socket> current;
  // Time up: the acceptor and any half-read request are closed, which ends the waits below.
  deadline.async_wait([impl, &current](const asio::error_code& ec) {
    if (ec) return;
    impl->expired = true;
    asio::error_code ignored;
    impl->acceptor.close(ignored);
    if (current) current->close(ignored);
  });
  struct Disarm {
    asio::steady_timer& timer;
    ~Disarm() { timer.cancel(); }
  } disarm{deadline};

  for (;;) {
    auto socket = std::make_shared<asio::ip::tcp::socket>(impl->context);
    asio::error_code accepted;
    co_await impl->acceptor.async_accept(*socket, asio::redirect_error(asio::use_awaitable, accepted));
    if (accepted) {
      if (impl->expired) throw std::runtime_error(neverCameBack);
      throw std::runtime_error("could not listen for the redirect");
    }
    current = socket;
    asio::streambuf buffer(requestLimit);
    asio::error_code read;
    co_await asio::async_read_until(*socket, buffer, "\r\n\r\n", asio::redirect_error(asio::use_awaitable, read));
    current.reset();
    if (impl->expired) throw std::runtime_error(neverCameBack);
    const std::string head(asio::buffers_begin(buffer.data()), asio::buffers_end(buffer.data()));
    const auto request = read && read != asio::error::not_found ? std::nullopt : RedirectRequest::parse(head);
    if (!request || request->item("state") != impl->state) {
      // Not the studio's own request (a stray tab, a probe): turned away, and the wait goes on.
      {
        std::string words = "Tavorin did not ask for this. Go back to Tavorin and press Connect.";
        co_await answer(socket, 400, std::move(words));
      }
      continue;
    }
    close();
    if (const auto error = request->item("error")) {
      {
        std::string words = "Google said: " + *error + ". You can close this tab.";
        co_await answer(socket, 200, std::move(words));
      }
      throw std::runtime_error("Google said: " + *error);
    }
    const auto code = request->item("code");
    if (!code || code->empty()) {
      {
        std::string words = "No code came back from Google. Go back to Tavorin and press Connect.";
        co_await answer(socket, 400, std::move(words));
      }
      throw std::runtime_error("no code came back from Google");
    }
    {
      std::string words = "Tavorin is connected. You can close this tab.";
      co_await answer(socket, 200, std::move(words));
    }
    co_return *code;
  }
}

}  // namespace tavorin
