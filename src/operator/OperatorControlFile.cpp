#include "operator/OperatorControlFile.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "operator/JSONValue.hpp"
#include "platform/TavorinPaths.hpp"
#include "base/AtomicFile.hpp"

namespace tavorin {

namespace fs = std::filesystem;

bool OperatorControlFile::isLive() const { return ::kill(pid, 0) == 0 || errno == EPERM; }

fs::path OperatorControlFile::defaultURL() { return TavorinPaths::applicationSupport() / "Tavorin" / "operator.json"; }

OperatorControlFile OperatorControlFile::read(const fs::path& file) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("can't read " + file.string() + ": " + std::strerror(errno));
  std::string text;
  char buf[4096];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  const JSONValue v = JSONValue::decode(text);
  auto integer = [&](const char* key) {
    const JSONValue* m = v[key];
    if (!m || !m->intValue()) throw std::runtime_error(file.string() + " has no " + key);
    return *m->intValue();
  };
  auto string = [&](const char* key) {
    const JSONValue* m = v[key];
    if (!m || !m->stringValue()) throw std::runtime_error(file.string() + " has no " + key);
    return *m->stringValue();
  };
  OperatorControlFile f;
  f.version = static_cast<int>(integer("version"));
  f.host = string("host");
  f.port = static_cast<int>(integer("port"));
  f.token = string("token");
  f.pid = static_cast<std::int32_t>(integer("pid"));
  return f;
}

void OperatorControlFile::write(const fs::path& file) const {
  std::error_code ec;
  if (file.has_parent_path()) {
    fs::create_directories(file.parent_path(), ec);
    if (ec) throw std::runtime_error("can't create " + file.parent_path().string() + ": " + ec.message());
  }
  const std::string text = JSONValue::object({{"version", version},
                                               {"host", host},
                                               {"port", port},
                                               {"token", token},
                                               {"pid", static_cast<long long>(pid)}})
                               .encode();
  // The token is a secret: the file is private from its first byte.
  AtomicFile::write(file, text, AtomicFile::Access::privateToUser, AtomicFile::Durability::whileRunning);
}

void OperatorControlFile::remove(const fs::path& file) noexcept {
  std::error_code ec;
  fs::remove(file, ec);
}

}  // namespace tavorin
