#pragma once
#include <asio/awaitable.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace asio {
class io_context;
}

namespace tavorin {

class OperatorService;

// The control socket: one JSON line in, one JSON line out, on 127.0.0.1 only,
// gated by the token published in the control file.
class OperatorServer {
 public:
  OperatorServer(asio::io_context& context, OperatorService& service, std::string token);
  ~OperatorServer();
  OperatorServer(const OperatorServer&) = delete;
  OperatorServer& operator=(const OperatorServer&) = delete;

  // Binds an ephemeral port on loopback and starts accepting; with
  // `writeControlFile`, publishes the control file last. Returns the port.
  // Throws when the listener cannot start or the file cannot be written (the
  // listener then stays up, unreachable without the file).
  int start(bool writeControlFile);
  // Stops listening and removes the control file. Open connections end with the process.
  void stop();

  // The whole of one request line, answered on the main actor. Usable without a socket.
  asio::awaitable<std::string> respond(std::string line);

  std::optional<int> port() const { return port_; }
  const std::optional<std::filesystem::path>& controlFileURL() const { return controlFileURL_; }
  const std::string& token() const { return token_; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  OperatorService& service_;
  std::string token_;
  std::optional<int> port_;
  std::optional<std::filesystem::path> controlFileURL_;
};

// A fresh random UUID string in the usual 8-4-4-4-12 form, upper case.
std::string freshUUID();

}  // namespace tavorin
