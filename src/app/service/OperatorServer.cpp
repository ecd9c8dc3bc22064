#include "app/service/OperatorServer.hpp"

#include <unistd.h>

#include <asio/experimental/as_tuple.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

#include "app/service/OperatorService.hpp"
#include "operator/OperatorControlFile.hpp"
#include "operator/OperatorWire.hpp"

namespace tavorin {

using asio::ip::tcp;
constexpr auto tuple = asio::experimental::as_tuple(asio::use_awaitable);

namespace {

// A line longer than this is refused before its token is read: no request of ours
// comes near it, and the receive buffer is bounded by it.
constexpr std::size_t maxLineBytes = 16u << 20;
// A connection whose client does not read its answers stops being read once this
// much is waiting to be sent, or this many answers are still being worked out.
constexpr std::size_t maxUnsentBytes = 4u << 20;
constexpr int maxAnswersOwed = 4096;
// With no descriptors left, accept fails at once; waiting a little keeps the main
// actor free for the connections already open.
constexpr auto acceptBackoff = std::chrono::milliseconds(50);

// One client connection. Answers may finish out of order when a verb waits; those
// ready while a write is in flight are sent together in the next write.
struct Connection : std::enable_shared_from_this<Connection> {
  explicit Connection(tcp::socket s) : socket(std::move(s)), wake(socket.get_executor()) {
    wake.expires_at(asio::steady_timer::time_point::max());
  }
  tcp::socket socket;
  // Wakes the reader when the answers it waits for have drained.
  asio::steady_timer wake;
  std::string sending;  // the bytes of the write in flight
  std::string outbox;   // answers that came while it was in flight
  bool writing = false;
  bool readDone = false;
  bool dead = false;
  int answersOwed = 0;

  std::size_t unsentBytes() const { return sending.size() + outbox.size(); }
  bool congested() const { return unsentBytes() > maxUnsentBytes || answersOwed > maxAnswersOwed; }

  void send(std::string line) {
    if (dead) return;
    outbox += line;
    if (!writing) writeNext();
  }

  void writeNext() {
    if (outbox.empty()) {
      writing = false;
      closeIfFinished();
      return;
    }
    writing = true;
    sending.clear();
    std::swap(sending, outbox);
    auto self = shared_from_this();
    asio::async_write(socket, asio::buffer(sending), [self](std::error_code ec, std::size_t) {
      // The verb's effect stands; a client that will not take its answer loses the rest.
      if (ec) return self->end();
      if (!self->congested()) self->wake.cancel();
      self->writeNext();
    });
  }

  // Closes at once and lets go of every unsent answer.
  void end() {
    dead = true;
    writing = false;
    std::string().swap(sending);
    std::string().swap(outbox);
    std::error_code ignored;
    socket.shutdown(tcp::socket::shutdown_both, ignored);
    socket.close(ignored);
    wake.cancel();
  }

  void answered(std::string reply) {
    answersOwed--;
    if (!reply.empty()) send(std::move(reply));
    else closeIfFinished();
    if (!congested()) wake.cancel();
  }

  // Once the client has stopped sending, the connection ends when every line it
  // sent has had its answer written.
  void closeIfFinished() {
    if (!dead && readDone && answersOwed == 0 && !writing && outbox.empty()) end();
  }
};

}  // namespace

struct OperatorServer::Impl {
  asio::io_context& context;
  // Shared with the accept loop, which may be waiting out a backoff when `stop` lets go.
  std::shared_ptr<tcp::acceptor> acceptor;
  // Connections and answers hold this, not the server: once the server is gone
  // they find it empty and stop.
  std::shared_ptr<OperatorServer*> alive;

  explicit Impl(asio::io_context& c) : context(c) {}
};

OperatorServer::OperatorServer(asio::io_context& context, OperatorService& service, std::string token)
    : impl_(std::make_unique<Impl>(context)), service_(service), token_(std::move(token)) {
  impl_->alive = std::make_shared<OperatorServer*>(this);
}

OperatorServer::~OperatorServer() {
  *impl_->alive = nullptr;
  if (impl_->acceptor) {
    std::error_code ec;
    impl_->acceptor->close(ec);
  }
}

namespace {

asio::awaitable<void> answer(std::shared_ptr<OperatorServer*> alive, std::shared_ptr<Connection> connection,
                             std::string line) {
  std::string reply;
  if (OperatorServer* server = *alive) reply = co_await server->respond(std::move(line));
  connection->answered(std::move(reply));
}

asio::awaitable<void> receive(std::shared_ptr<OperatorServer*> alive, std::shared_ptr<Connection> connection) {
  auto executor = co_await asio::this_coro::executor;
  std::string buffer;
  std::size_t scanned = 0;     // bytes of the buffer already known to hold no line feed
  bool skippingLine = false;   // inside a line too long to keep, until its line feed
  std::vector<char> chunk(0x10000);
  auto startAnswer = [&](std::string line) {
    connection->answersOwed++;
    asio::co_spawn(executor, answer(alive, connection, std::move(line)), asio::detached);
  };
  for (;;) {
    while (connection->congested() && !connection->dead) {
      connection->wake.expires_at(asio::steady_timer::time_point::max());
      co_await connection->wake.async_wait(tuple);
    }
    if (connection->dead) co_return;
    auto [ec, n] = co_await connection->socket.async_read_some(asio::buffer(chunk), tuple);
    if (!*alive) {
      connection->end();
      co_return;
    }
    if (connection->dead) co_return;
    buffer.append(chunk.data(), n);
    // Cut out every whole line; what follows the last line feed waits for more bytes.
    std::size_t from = 0;
    for (std::size_t lf; (lf = buffer.find('\n', std::max(from, scanned))) != std::string::npos; from = lf + 1) {
      if (skippingLine) {
        skippingLine = false;
        continue;
      }
      std::string line = buffer.substr(from, lf + 1 - from);
      if (!OperatorWire::isUTF8(line)) continue;  // dropped with no answer
      startAnswer(std::move(line));
    }
    buffer.erase(0, from);
    scanned = buffer.size();
    if (buffer.size() > maxLineBytes) {
      // Answered as malformed once; the rest of it is read and dropped.
      if (!skippingLine) startAnswer(std::string());
      skippingLine = true;
      buffer.clear();
      scanned = 0;
    }
    if (ec) break;
  }
  connection->readDone = true;
  connection->closeIfFinished();
}

bool outOfDescriptors(const std::error_code& ec) {
  return ec == asio::error::no_descriptors || ec == std::errc::too_many_files_open_in_system ||
         ec == asio::error::no_buffer_space || ec == asio::error::no_memory;
}

asio::awaitable<void> acceptLoop(std::shared_ptr<OperatorServer*> alive, std::shared_ptr<tcp::acceptor> held) {
  tcp::acceptor& acceptor = *held;
  auto executor = co_await asio::this_coro::executor;
  asio::steady_timer backoff(executor);
  for (;;) {
    auto [ec, socket] = co_await acceptor.async_accept(tuple);
    if (!*alive || ec == asio::error::operation_aborted || !acceptor.is_open()) co_return;
    if (ec) {
      if (outOfDescriptors(ec)) {
        backoff.expires_after(acceptBackoff);
        co_await backoff.async_wait(tuple);
        if (!*alive || !acceptor.is_open()) co_return;
      }
      continue;
    }
    std::error_code ignored;
    // Each answer is one small write; Nagle would hold it for the client's delayed ack.
    socket.set_option(tcp::no_delay(true), ignored);
    auto connection = std::make_shared<Connection>(std::move(socket));
    asio::co_spawn(executor, receive(alive, connection), asio::detached);
  }
}

}  // namespace

int OperatorServer::start(bool writeControlFile) {
  impl_->acceptor = std::make_shared<tcp::acceptor>(impl_->context);
  tcp::acceptor& acceptor = *impl_->acceptor;
  const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), 0);
  acceptor.open(endpoint.protocol());
  acceptor.set_option(tcp::acceptor::reuse_address(true));
  acceptor.bind(endpoint);
  acceptor.listen();
  port_ = acceptor.local_endpoint().port();
  asio::co_spawn(impl_->context, acceptLoop(impl_->alive, impl_->acceptor), asio::detached);

  if (writeControlFile) {
    OperatorControlFile file;
    file.port = *port_;
    file.token = token_;
    file.pid = static_cast<std::int32_t>(::getpid());
    const auto url = OperatorControlFile::defaultURL();
    file.write(url);
    controlFileURL_ = url;
  }
  return *port_;
}

void OperatorServer::stop() {
  if (impl_->acceptor) {
    std::error_code ec;
    impl_->acceptor->close(ec);
    impl_->acceptor.reset();
  }
  if (controlFileURL_) {
    OperatorControlFile::remove(*controlFileURL_);
    controlFileURL_.reset();
  }
  port_.reset();
}

namespace {
// The answer line, or the one hand-written literal when it cannot be encoded.
std::string encodeOrLiteral(const OperatorResult& result) {
  try {
    return OperatorWire::encodeLine(result);
  } catch (const std::exception&) {
    return std::string(OperatorWire::encodeFailedLine);
  }
}
}  // namespace

asio::awaitable<std::string> OperatorServer::respond(std::string line) {
  OperatorRequest request;
  try {
    request = OperatorWire::decodeRequest(line);
  } catch (const std::exception&) {
    co_return encodeOrLiteral(OperatorResult::failure(std::string(OperatorWire::malformedText)));
  }
  if (request.token != token_)
    co_return encodeOrLiteral(OperatorResult::failure(std::string(OperatorWire::unauthorizedText)));
  OperatorResult result = co_await service_.handle(std::move(request.command));
  co_return encodeOrLiteral(result);
}

std::string freshUUID() {
  std::random_device device;
  std::uniform_int_distribution<int> byte(0, 255);
  unsigned char b[16];
  for (auto& x : b) x = static_cast<unsigned char>(byte(device));
  b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);  // version 4
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);  // RFC 4122 variant
  char out[37];
  std::snprintf(out, sizeof out, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return out;
}

}  // namespace tavorin
