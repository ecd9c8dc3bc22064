#include "voice/corvane/CorvaneDriver.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "voice/AudioFile.hpp"

extern char** environ;

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// A failure of this engine, numbered as its callers expect: 1 script missing,
// 2 render failed, 3 no voice named.
struct CorvaneError : std::runtime_error {
  int code;
  CorvaneError(int code, const std::string& text) : std::runtime_error(text), code(code) {}
};

std::optional<std::string> text(const json& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

fs::path executableDir() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path(".") : self.parent_path();
}

}  // namespace

CorvaneDriver::CorvaneDriver(std::optional<fs::path> script, std::optional<fs::path> charactersRoot, double deadline)
    : script_(script ? *script : defaultScript()),
      charactersRoot_(charactersRoot ? *charactersRoot : defaultCharactersRoot()),
      deadline_(deadline) {}

fs::path CorvaneDriver::defaultScript() {
  // Installed, the script lies in share/tavorin/corvane; in a build folder, beside the program.
  const fs::path dir = executableDir();
  const fs::path installed = dir / ".." / "share" / "tavorin" / "corvane" / "voices.py";
  std::error_code ec;
  if (fs::exists(installed, ec)) return installed;
  return dir / "corvane" / "voices.py";
}

fs::path CorvaneDriver::defaultCharactersRoot() {
  const char* home = std::getenv("HOME");
  return fs::path(home && *home ? home : "/") / ".config" / "corvane" / "characters";
}

void CorvaneDriver::refresh() {
  std::lock_guard guard(lock_);
  cached_.reset();
}

CorvaneDriver::Run CorvaneDriver::run(const std::vector<std::string>& arguments, std::optional<double> deadline) const {
  Run result;
  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0) return result;
  if (::pipe2(err, O_CLOEXEC) != 0) {
    ::close(out[0]);
    ::close(out[1]);
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // Its own process group, so a deadline takes whatever the script started with it.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);

  std::vector<std::string> words{python_, "python3", script_.string()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = ::posix_spawn(&pid, python_.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  ::close(out[1]);
  ::close(err[1]);
  if (spawned != 0) {
    ::close(out[0]);
    ::close(err[0]);
    return result;
  }

  const auto until = std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                         std::chrono::duration<double>(deadline.value_or(0)));
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  int open = 2;
  char buffer[8192];
  while (open > 0) {
    int wait = -1;
    if (deadline) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
      if (left.count() <= 0) {
        ::kill(-pid, SIGKILL);
        result.killed = true;
        break;
      }
      wait = static_cast<int>(left.count());
    }
    const int ready = ::poll(fds, 2, wait);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (auto& fd : fds)
    if (fd.fd >= 0) ::close(fd.fd);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!result.killed && WIFEXITED(status)) {
    result.finished = true;
    result.status = WEXITSTATUS(status);
  }
  return result;
}

CorvaneDriver::Listing CorvaneDriver::ask() {
  {
    std::lock_guard guard(lock_);
    if (cached_) return *cached_;
  }
  Listing listing;
  std::error_code ec;
  if (!fs::is_regular_file(script_, ec)) {
    listing = offDisk();
  } else {
    const Run ran = run({"list"}, deadline_);
    try {
      if (!ran.finished || ran.status != 0) throw std::runtime_error("no answer");
      listing = decodeListing(ran.out);
    } catch (const std::exception&) {
      listing = offDisk();
    }
  }
  std::lock_guard guard(lock_);
  cached_ = listing;
  return listing;
}

std::vector<DriverCharacter> CorvaneDriver::readPackages() const {
  std::vector<fs::path> folders;
  std::error_code ec;
  for (fs::directory_iterator it(charactersRoot_, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_directory(ec)) folders.push_back(it->path());
  std::sort(folders.begin(), folders.end());
  std::vector<DriverCharacter> cast;
  for (const auto& folder : folders) {
    std::ifstream in(folder / "character.json");
    if (!in) continue;
    try {
      const json package = json::parse(in);
      if (!package.is_object()) continue;
      DriverCharacter character;
      character.id = text(package, "id").value_or(folder.filename().string());
      character.name = text(package, "name").value_or(character.id);
      if (auto voices = package.find("voices"); voices != package.end() && voices->is_array()) {
        for (const auto& v : *voices) {
          DriverVoice voice;
          voice.id = v.at("id").get<std::string>();
          voice.name = text(v, "name").value_or(voice.id);
          voice.source = text(v, "source");
          character.voices.push_back(std::move(voice));
        }
      }
      character.activeVoiceId = text(package, "active_voice_id");
      if (!character.activeVoiceId)
        if (auto ids = package.find("active_voice_ids"); ids != package.end() && ids->is_array() && !ids->empty() &&
                                                          ids->front().is_string())
          character.activeVoiceId = ids->front().get<std::string>();
      if (!character.activeVoiceId && !character.voices.empty()) character.activeVoiceId = character.voices.front().id;
      cast.push_back(std::move(character));
    } catch (const std::exception&) {
      continue;  // a package that will not read leaves its neighbours standing
    }
  }
  return cast;
}

CorvaneDriver::Listing CorvaneDriver::offDisk() const {
  Listing listing;
  listing.characters = readPackages();
  const bool clones = std::any_of(listing.characters.begin(), listing.characters.end(),
                                  [](const DriverCharacter& c) { return !c.voices.empty(); });
  listing.health = healthOf(listing.characters, !listing.characters.empty(), clones, "packages",
                            "the engine did not answer, so the cast was read off disk");
  return listing;
}

RenderResult CorvaneDriver::render(const std::string& text, const std::string& character, const std::string& voice,
                                   const fs::path& to) {
  // The engine would pick at random; a take must not change its voice between renders.
  if (voice.empty())
    throw CorvaneError(3, "no voice was named for " + character +
                              ", and corvane picks at random without one. Pick a voice for this character.");
  std::error_code ec;
  if (!fs::is_regular_file(script_, ec)) throw CorvaneError(1, "voices.py missing from bundle");
  const Run ran = run({"render", character, voice, to.string(), text}, std::nullopt);
  if (!ran.finished || ran.status != 0)
    throw CorvaneError(2, "corvane render failed: " + ran.out + " " + ran.err);
  json answer;
  try {
    answer = json::parse(ran.out);
  } catch (const std::exception&) {
    throw CorvaneError(2, "corvane render failed: it printed no answer this studio can read: " + ran.out);
  }
  if (answer.is_object() && answer.contains("error"))
    throw CorvaneError(2, answer["error"].is_string() ? answer["error"].get<std::string>() : answer["error"].dump());
  const auto seconds = AudioFile::seconds(to);
  if (!seconds) throw CorvaneError(2, "corvane render failed: " + to.filename().string() + " is not audio");
  return {to, *seconds, voice};
}

}  // namespace tavorin
