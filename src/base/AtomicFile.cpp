#include "base/AtomicFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace tavorin {

namespace fs = std::filesystem;

namespace {

std::string failure(const fs::path& file, const std::string& why) { return "could not write " + file.string() + ": " + why; }

// Syncs a folder so that a rename inside it is on the disk, not only in the cache.
void syncFolder(const fs::path& folder) {
  const int fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;  // a folder we cannot open cannot be synced; the rename itself already happened
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

void AtomicFile::write(const fs::path& file, const std::string& text, Access access, Durability durability) {
  const fs::path folder = file.parent_path();
  std::string temp = (folder / ("." + file.filename().string() + ".XXXXXX")).string();
  const int fd = ::mkstemp(temp.data());
  if (fd < 0) throw std::runtime_error(failure(file, std::strerror(errno)));
  const auto abandon = [&](const std::string& why) {
    ::close(fd);
    ::unlink(temp.c_str());
    throw std::runtime_error(failure(file, why));
  };
  // mkstemp makes the file 0600; a shared document gets the usual mode the umask allows.
  if (access == Access::shared) {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
  }
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) abandon(std::strerror(n < 0 ? errno : EIO));
    done += static_cast<std::size_t>(n);
  }
  // Sync before the rename and the folder after it: a kill -9 cannot tell the
  // difference, but after a power cut the rename could otherwise be on disk
  // before the bytes it names, leaving an empty or torn document.
  if (durability == Durability::disk && ::fsync(fd) != 0) abandon(std::strerror(errno));
  if (::close(fd) != 0) {
    const std::string why = std::strerror(errno);
    ::unlink(temp.c_str());
    throw std::runtime_error(failure(file, why));
  }
  if (::rename(temp.c_str(), file.c_str()) != 0) {
    const std::string why = std::strerror(errno);
    ::unlink(temp.c_str());
    throw std::runtime_error(failure(file, why));
  }
  if (durability == Durability::disk) syncFolder(folder);
}

}  // namespace tavorin
