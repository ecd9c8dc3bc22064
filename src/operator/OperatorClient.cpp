#include "operator/OperatorClient.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "operator/OperatorWire.hpp"

namespace tavorin {

using ClientError = OperatorClient::ClientError;

ClientError ClientError::stale(std::int32_t pid) {
  return ClientError(Kind::stale,
                     "found a control file from a dead launch (pid " + std::to_string(pid) + "); Tavorin is not running",
                     pid);
}
ClientError ClientError::socketFailed(const std::string& t) { return ClientError(Kind::socketFailed, "socket: " + t); }
ClientError ClientError::connectFailed(const std::string& t) { return ClientError(Kind::connectFailed, "connect: " + t); }
ClientError ClientError::io(const std::string& t) { return ClientError(Kind::io, t); }
ClientError ClientError::notRunning() {
  return ClientError(Kind::notRunning,
                     "Tavorin is not running. Start it on a production folder with `tavorin <folder>` "
                     "(from a checkout: scripts/run <folder>), then try again.");
}
ClientError ClientError::badResponse() {
  return ClientError(Kind::badResponse, "the operator server returned an unreadable response");
}

OperatorClient OperatorClient::fromControlFile(const std::filesystem::path& file) {
  OperatorControlFile control;
  try {
    control = OperatorControlFile::read(file);
  } catch (const std::exception&) {
    throw ClientError::notRunning();
  }
  if (::kill(control.pid, 0) != 0 && errno != EPERM) throw ClientError::stale(control.pid);
  return OperatorClient(control.host, control.port, control.token);
}

OperatorResult OperatorClient::send(const OperatorCommand& command) const {
  const std::string line = OperatorWire::encodeLine(OperatorRequest{token, command});
  const std::string answer = roundTrip(line);
  try {
    return OperatorWire::decodeResult(answer);
  } catch (const std::exception&) {
    throw ClientError::badResponse();
  }
}

namespace {
// Closes the socket on every path out.
struct Socket {
  int fd;
  ~Socket() {
    if (fd >= 0) ::close(fd);
  }
};
}  // namespace

std::string OperatorClient::roundTrip(const std::string& line) const {
  Socket s{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  if (s.fd < 0) throw ClientError::socketFailed(std::strerror(errno));

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) throw ClientError::connectFailed("bad host " + host);
  while (::connect(s.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == EINTR) continue;
    throw ClientError::connectFailed(std::strerror(errno));
  }

  std::size_t sent = 0;
  while (sent < line.size()) {
    ssize_t n = ::send(s.fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw ClientError::io(std::strerror(errno));
    sent += static_cast<std::size_t>(n);
  }

  std::string answer;
  char block[4096];
  for (;;) {
    ssize_t n = ::recv(s.fd, block, sizeof block, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw ClientError::io(std::strerror(errno));
    if (n == 0) break;
    answer.append(block, static_cast<std::size_t>(n));
    if (answer.find('\n') != std::string::npos) break;
  }
  if (answer.empty() || !OperatorWire::isUTF8(answer)) throw ClientError::badResponse();
  return answer;
}

}  // namespace tavorin
