#include "platform/FreedesktopTrash.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

std::string sentence(const std::string& what, int err) { return what + ": " + std::strerror(err); }

void makePrivateFolder(const fs::path& dir) {
  std::error_code ec;
  if (fs::is_directory(dir, ec)) return;
  fs::create_directories(dir.parent_path(), ec);
  // The trash holds whatever the user threw away; it is theirs alone.
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
    throw std::runtime_error(sentence("could not make " + dir.string(), errno));
}

bool present(const fs::path& p) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(p, ec));
}

// Claims a name by creating its info file exclusively, so two trashings never share one.
int claim(const fs::path& info) { return ::open(info.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); }

bool writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

FreedesktopTrash::FreedesktopTrash(std::optional<fs::path> home, std::function<Clock::time_point()> clock)
    : home_(std::move(home)), clock_(std::move(clock)) {}

fs::path FreedesktopTrash::defaultHome() { return TavorinPaths::applicationSupport() / "Trash"; }

std::string FreedesktopTrash::percentEncoded(const std::string& path) {
  static const char hex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : path) {
    bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                 c == '.' || c == '_' || c == '~' || c == '/';
    if (plain) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 0xF];
    }
  }
  return out;
}

std::string FreedesktopTrash::deletionDate(Clock::time_point t) {
  std::time_t secs = Clock::to_time_t(t);
  std::tm local{};
  localtime_r(&secs, &local);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &local);
  return buf;
}

fs::path FreedesktopTrash::moveToTrash(const fs::path& item) {
  std::error_code ec;
  const fs::path original = fs::absolute(item, ec).lexically_normal();
  if (ec || !present(original)) throw std::runtime_error(original.string() + " is not there");
  fs::path source = original;
  if (!source.has_filename()) source = source.parent_path();  // a trailing slash

  const fs::path home = home_ ? *home_ : defaultHome();
  makePrivateFolder(home);
  makePrivateFolder(home / "files");
  makePrivateFolder(home / "info");

  const std::string base = source.filename().string();
  std::string name = base;
  int fd = -1;
  for (int n = 2;; ++n) {
    if (!present(home / "files" / name)) {
      fd = claim(home / "info" / (name + ".trashinfo"));
      if (fd >= 0) break;
      if (errno != EEXIST) throw std::runtime_error(sentence("could not write to " + (home / "info").string(), errno));
    }
    name = base + "." + std::to_string(n);
  }
  const fs::path info = home / "info" / (name + ".trashinfo");
  const fs::path target = home / "files" / name;

  const std::string text = "[Trash Info]\nPath=" + percentEncoded(source.string()) +
                           "\nDeletionDate=" + deletionDate(clock_()) + "\n";
  bool written = writeAll(fd, text);
  int writeErr = errno;
  ::close(fd);
  if (!written) {
    fs::remove(info, ec);
    throw std::runtime_error(sentence("could not write " + info.string(), writeErr));
  }

  if (::rename(source.c_str(), target.c_str()) != 0) {
    int err = errno;
    if (err != EXDEV) {
      fs::remove(info, ec);
      throw std::runtime_error(sentence("could not move " + source.string() + " into the Trash", err));
    }
    // Another file system: copy across, and only then remove the original.
    fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) {
      std::error_code ignored;
      fs::remove_all(target, ignored);
      fs::remove(info, ignored);
      throw std::runtime_error("could not copy " + source.string() + " into the Trash: " + ec.message());
    }
    fs::remove_all(source, ec);
  }
  return target;
}

}  // namespace tavorin
