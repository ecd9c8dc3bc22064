#pragma once
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "operator/OperatorCommand.hpp"
#include "operator/OperatorControlFile.hpp"

namespace tavorin {

// The command-line side: finds the running studio, sends one command, reads one answer.
class OperatorClient {
 public:
  struct ClientError : std::runtime_error {
    enum class Kind { stale, socketFailed, connectFailed, io, notRunning, badResponse };
    Kind kind;
    std::int32_t pid = 0;
    ClientError(Kind kind, std::string text, std::int32_t pid = 0)
        : std::runtime_error(std::move(text)), kind(kind), pid(pid) {}

    static ClientError stale(std::int32_t pid);
    static ClientError socketFailed(const std::string& text);
    static ClientError connectFailed(const std::string& text);
    static ClientError io(const std::string& text);
    static ClientError notRunning();
    static ClientError badResponse();
  };

  OperatorClient(std::string host, int port, std::string token)
      : host(std::move(host)), port(port), token(std::move(token)) {}

  static OperatorClient fromControlFile(const std::filesystem::path& file = OperatorControlFile::defaultURL());

  // Blocks until the answer line arrives, however long the verb takes.
  OperatorResult send(const OperatorCommand& command) const;
  // One connection, one line out, one line back. No time-outs.
  std::string roundTrip(const std::string& line) const;

  std::string host;
  int port;
  std::string token;
};

}  // namespace tavorin
