#include "app/service/OperatorServer.hpp"

#include <unistd.h>

#include <asio/experimental/as_tuple.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <cstdio>
#include <deque>
#include <random>

#include "app/service/OperatorService.hpp"
#include "operator/OperatorControlFile.hpp"
#include "operator/OperatorWire.hpp"

namespace tavorin {

using asio::ip::tcp;
constexpr auto tuple = asio::experimental::as_tuple(asio::use_awaitable);

namespace {

// One client connection. Answers may finish out of order when a verb waits, so
// writes go through a queue: one async_write at a time on the socket.
struct Connection : std::enable_shared_from_this<Connection> {
  explicit Connection(tcp::socket s) : socket(std::move(s)) {}
  tcp::socket socket;
  std::deque<std::string> outbox;
  bool writing = false;
  bool readDone = false;
  int answersOwed = 0;

  void send(std::string line) {
    outbox.push_back(std::move(line));
    if (!writing) writeNext();
  }

  void writeNext() {
    if (outbox.empty()) {
      writing = false;
      closeIfFinished();
      return;
    }
    writing = true;
    auto self = shared_from_this();
    asio::async_write(socket, asio::buffer(outbox.front()), [self](std::error_code, std::size_t) {
      // A failed send is ignored: the verb's effect stands.
      self->outbox.pop_front();
      self->writeNext();
    });
  }

  // Once the client has stopped sending, the connection ends when every line it
  // sent has had its answer written.
  void closeIfFinished() {
    if (readDone && answersOwed == 0 && !writing && outbox.empty()) {
      std::error_code ec;
      socket.shutdown(tcp::socket::shutdown_both, ec);
      socket.close(ec);
    }
  }
};

}  // namespace

struct OperatorServer::Impl {
  asio::io_context& context;
  std::optional<tcp::acceptor> acceptor;
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
  connection->answersOwed--;
  if (!reply.empty()) connection->send(std::move(reply));
  else connection->closeIfFinished();
}

asio::awaitable<void> receive(std::shared_ptr<OperatorServer*> alive, std::shared_ptr<Connection> connection) {
  auto executor = co_await asio::this_coro::executor;
  std::string buffer;
  std::vector<char> chunk(0x10000);
  for (;;) {
    auto [ec, n] = co_await connection->socket.async_read_some(asio::buffer(chunk), tuple);
    if (!*alive) {
      std::error_code ignored;
      connection->socket.close(ignored);
      co_return;
    }
    buffer.append(chunk.data(), n);
    // Cut out every whole line; what follows the last line feed waits for more bytes.
    std::size_t from = 0;
    for (std::size_t lf; (lf = buffer.find('\n', from)) != std::string::npos; from = lf + 1) {
      std::string line = buffer.substr(from, lf + 1 - from);
      if (!OperatorWire::isUTF8(line)) continue;  // dropped with no answer
      connection->answersOwed++;
      asio::co_spawn(executor, answer(alive, connection, std::move(line)), asio::detached);
    }
    buffer.erase(0, from);
    if (ec) break;
  }
  connection->readDone = true;
  connection->closeIfFinished();
}

asio::awaitable<void> acceptLoop(std::shared_ptr<OperatorServer*> alive, tcp::acceptor& acceptor) {
  auto executor = co_await asio::this_coro::executor;
  for (;;) {
    auto [ec, socket] = co_await acceptor.async_accept(tuple);
    if (!*alive || ec == asio::error::operation_aborted || !acceptor.is_open()) co_return;
    if (ec) continue;
    auto connection = std::make_shared<Connection>(std::move(socket));
    asio::co_spawn(executor, receive(alive, connection), asio::detached);
  }
}

}  // namespace

int OperatorServer::start(bool writeControlFile) {
  tcp::acceptor& acceptor = impl_->acceptor.emplace(impl_->context);
  const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), 0);
  acceptor.open(endpoint.protocol());
  acceptor.set_option(tcp::acceptor::reuse_address(true));
  acceptor.bind(endpoint);
  acceptor.listen();
  port_ = acceptor.local_endpoint().port();
  asio::co_spawn(impl_->context, acceptLoop(impl_->alive, acceptor), asio::detached);

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
