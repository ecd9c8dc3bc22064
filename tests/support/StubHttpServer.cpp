#include "StubHttpServer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <stdexcept>

namespace tavorin::test {

namespace {

const char* reasonPhrase(int status) {
  switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 422: return "Unprocessable Entity";
    case 500: return "Internal Server Error";
    default: return "Status";
  }
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// Reads until `done` says the buffer holds enough, the peer closes, or 5 s pass.
bool readUntil(int fd, std::string& buffer, const std::function<bool()>& done) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!done()) {
    if (std::chrono::steady_clock::now() > until) return false;
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    char chunk[4096];
    ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) return false;
    buffer.append(chunk, static_cast<size_t>(n));
  }
  return true;
}

bool parse(int fd, StubRequest& request) {
  std::string buffer;
  if (!readUntil(fd, buffer, [&] { return buffer.find("\r\n\r\n") != std::string::npos; })) return false;
  size_t headEnd = buffer.find("\r\n\r\n");
  std::string head = buffer.substr(0, headEnd);
  size_t lineEnd = head.find("\r\n");
  std::string first = head.substr(0, lineEnd);
  size_t a = first.find(' '), b = first.rfind(' ');
  if (a == std::string::npos || b == a || first.substr(b + 1) != "HTTP/1.1") return false;
  request.method = first.substr(0, a);
  request.target = first.substr(a + 1, b - a - 1);
  size_t at = lineEnd == std::string::npos ? head.size() : lineEnd + 2;
  while (at < head.size()) {
    size_t end = head.find("\r\n", at);
    if (end == std::string::npos) end = head.size();
    std::string line = head.substr(at, end - at);
    size_t colon = line.find(':');
    if (colon == std::string::npos) return false;
    std::string value = line.substr(colon + 1);
    value.erase(0, value.find_first_not_of(' '));
    request.headers[lower(line.substr(0, colon))] = value;
    at = end + 2;
  }
  if (request.headers.contains("transfer-encoding")) return false;  // clients here send lengths
  size_t length = 0;
  if (auto found = request.headers.find("content-length"); found != request.headers.end()) {
    try {
      length = std::stoul(found->second);
    } catch (const std::exception&) {
      return false;
    }
  }
  std::string rest = buffer.substr(headEnd + 4);
  if (!readUntil(fd, rest, [&] { return rest.size() >= length; })) return false;
  if (rest.size() != length) return false;
  request.body = rest;
  return true;
}

}  // namespace

bool StubConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (stopping_) return false;
    pollfd p{fd_, POLLOUT, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

void StubConnection::respond(int status, std::string_view contentType, std::string_view body) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + "\r\n";
  if (!contentType.empty()) head += "Content-Type: " + std::string(contentType) + "\r\n";
  head += "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n";
  send(head);
  send(body);
}

void StubConnection::hang() {
  while (!stopping_) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, 50) > 0) {
      char byte;
      if (::recv(fd_, &byte, 1, MSG_PEEK) <= 0) return;  // the peer gave up
      ::recv(fd_, &byte, 1, 0);
    }
  }
}

StubHttpServer::StubHttpServer(Handler handler) : handler_(std::move(handler)) {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::listen(listener_, 16) != 0 || ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("the stub HTTP server could not listen");
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] {
    while (!stopping_) {
      pollfd p{listener_, POLLIN, 0};
      if (::poll(&p, 1, 50) <= 0) continue;
      int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      std::lock_guard guard(lock_);
      open_.push_back(fd);
      workers_.emplace_back([this, fd] { serve(fd); });
    }
  });
}

void StubHttpServer::serve(int fd) {
  StubRequest request;
  StubConnection connection(fd, stopping_);
  if (!parse(fd, request)) {
    ++malformed_;
    connection.respond(400, "text/plain", "malformed request");
  } else {
    {
      std::lock_guard guard(lock_);
      requests_.push_back(request);
    }
    handler_(request, connection);
  }
  ::shutdown(fd, SHUT_RDWR);
}

StubHttpServer::~StubHttpServer() {
  stopping_ = true;
  acceptor_.join();
  std::vector<std::thread> workers;
  {
    std::lock_guard guard(lock_);
    workers.swap(workers_);
  }
  for (auto& worker : workers) worker.join();
  for (int fd : open_) ::close(fd);
  ::close(listener_);
}

std::vector<StubRequest> StubHttpServer::requests() const {
  std::lock_guard guard(lock_);
  return requests_;
}

}  // namespace tavorin::test
