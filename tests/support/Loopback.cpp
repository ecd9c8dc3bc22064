#include "Loopback.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace tavorin::test {

namespace {
sockaddr_in loopback(int port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return a;
}
}  // namespace

LoopbackServer::LoopbackServer(std::function<std::string(const std::string&)> answer) : answer_(std::move(answer)) {
  listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a = loopback(0);
  ::bind(listener_, reinterpret_cast<sockaddr*>(&a), sizeof a);
  ::listen(listener_, 8);
  socklen_t len = sizeof a;
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &len);
  port_ = ntohs(a.sin_port);
  thread_ = std::thread([this] {
    while (!stopping_) {
      const int c = ::accept(listener_, nullptr, nullptr);
      if (c < 0) return;
      std::string in;
      char buf[4096];
      while (in.find('\n') == std::string::npos) {
        const ssize_t n = ::recv(c, buf, sizeof buf, 0);
        if (n <= 0) break;
        in.append(buf, static_cast<std::size_t>(n));
      }
      const std::string out = answer_(in);
      ::send(c, out.data(), out.size(), MSG_NOSIGNAL);
      ::close(c);
    }
  });
}

LoopbackServer::~LoopbackServer() {
  stopping_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  ::close(listener_);
}

LineClient::LineClient(int port) {
  fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
  timeval tv{5, 0};
  ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  sockaddr_in a = loopback(port);
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) throw std::runtime_error("connect");
}

LineClient::~LineClient() { ::close(fd_); }

void LineClient::write(const std::string& bytes) {
  if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("short send");
}

std::string LineClient::line() {
  for (;;) {
    if (auto lf = pending_.find('\n'); lf != std::string::npos) {
      std::string l = pending_.substr(0, lf + 1);
      pending_.erase(0, lf + 1);
      return l;
    }
    char buf[65536];
    const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    if (n <= 0) return {};
    pending_.append(buf, static_cast<std::size_t>(n));
  }
}

void LineClient::shutdownWrite() { ::shutdown(fd_, SHUT_WR); }

bool LineClient::closedByPeer() {
  char c;
  return ::recv(fd_, &c, 1, 0) == 0;
}

std::string browse(const std::string& url) {
  std::string out;
  if (FILE* p = popen(("curl -s --max-time 5 '" + url + "'").c_str(), "r")) {
    char buffer[1024];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, p)) > 0;) out.append(buffer, n);
    pclose(p);
  }
  return out;
}

std::string queryItem(const std::string& url, const std::string& key) {
  size_t at = url.find("?" + key + "=");
  if (at == std::string::npos) at = url.find("&" + key + "=");
  if (at == std::string::npos) return "";
  at += key.size() + 2;
  const size_t end = url.find('&', at);
  const std::string raw = url.substr(at, end == std::string::npos ? std::string::npos : end - at);
  std::string decoded;
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == '%' && i + 2 < raw.size()) {
      decoded += char(std::stoi(raw.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      decoded += raw[i];
    }
  }
  return decoded;
}

}  // namespace tavorin::test
