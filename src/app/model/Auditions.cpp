#include "app/model/Auditions.hpp"

#include <algorithm>

#include "base/Text.hpp"

namespace tavorin {

namespace fs = std::filesystem;

Auditions::Auditions(MainActor& actor, fs::path support, Player player)
    : actor_(actor), support_(std::move(support)), player_(std::move(player)) {}

std::string Auditions::request(const std::string& character, const std::string& voice, const std::string& prompt) {
  const AuditionsStore where = store(character, voice);
  std::error_code ec;
  fs::create_directories(where.folder, ec);  // a failure shows when the engine writes
  const std::string ticket = std::string(RenderQueue::Ticket::auditionMark) + std::to_string(++counter_);
  requests_[ticket] = Request{character, voice, prompt, where.folder / AuditionsStore::filename(prompt, actor_.wallNow())};
  return ticket;
}

RenderQueue::Plan Auditions::job(const std::string& ticket) const {
  auto found = requests_.find(ticket);
  if (found == requests_.end()) return RenderQueue::Plan::refuse("that audition is no longer waiting");
  const std::string words(Text::trimSpace(found->second.prompt));
  if (words.empty()) return RenderQueue::Plan::refuse("type a line for " + found->second.character + " to say");
  return RenderQueue::Plan::go({words, found->second.character, found->second.voice, found->second.destination});
}

void Auditions::finish(const std::string& ticket, const RenderResult& result) {
  auto found = requests_.find(ticket);
  if (found == requests_.end()) return;
  const Request request = found->second;
  requests_.erase(found);
  Take take{result.audioURL.filename().string(), request.prompt, actor_.wallNow(), result.duration};
  try {
    store(request.character, request.voice).record(take);
  } catch (const std::exception& error) {
    failure_ = std::string("the audition was not kept: ") + error.what();
  }
  lastTake_ = take;
  play(request.character + "/" + take.file, request.prompt, result.audioURL);
}

void Auditions::sweep(const std::map<std::string, RenderQueue::State>& states) {
  std::erase_if(requests_, [&](const auto& entry) {
    auto state = states.find(entry.first);
    return state == states.end() || state->second.kind == RenderQueue::State::Kind::failed;
  });
}

void Auditions::preview(const DriverVoice& voice) {
  std::error_code ec;
  if (!voice.preview || !fs::is_regular_file(*voice.preview, ec)) {
    failure_ = voice.name + " has no preview clip on disk. Audition it instead.";
    return;
  }
  play("preview/" + voice.id, voice.says.value_or(""), *voice.preview);
}

void Auditions::play(const std::string& id, const std::string& speaking, const fs::path& file) {
  stop();
  try {
    player_.play(file);
  } catch (const std::exception&) {
    failure_ = file.filename().string() + " will not open as audio";
    return;
  }
  failure_.reset();
  playing_ = id;
  speaking_ = speaking;
  watch();
}

void Auditions::playTake(const std::string& character, const std::string& voice, const Take& take) {
  const fs::path file = store(character, voice).folder / take.file;
  std::error_code ec;
  if (!fs::is_regular_file(file, ec)) {
    failure_ = "that take is in the index and not on disk: " + take.file;
    return;
  }
  play(character + "/" + take.file, take.prompt, file);
}

void Auditions::stop() {
  if (watcher_) watcher_->cancel();
  watcher_.reset();
  if (playing_ && player_.stop) player_.stop();
  playing_.reset();
  speaking_.reset();
}

void Auditions::watch() {
  watcher_ = actor_.after(std::chrono::milliseconds(static_cast<int>(watchSeconds * 1000)), alive_.guard([this] {
    if (player_.playing && player_.playing()) {
      watch();
      return;
    }
    playing_.reset();
    speaking_.reset();
    watcher_.reset();
  }));
}

std::vector<Auditions::Request> Auditions::pending(const std::string& character, const std::string& voice) const {
  std::vector<Request> out;
  for (const auto& [ticket, request] : requests_)
    if (request.character == character && request.voice == voice) out.push_back(request);
  return out;
}

std::vector<Auditions::Take> Auditions::takes(const std::string& character, const std::string& voice) const {
  auto list = store(character, voice).read().takes;
  std::reverse(list.begin(), list.end());
  return list;
}

std::size_t Auditions::count(const std::string& character, const std::string& voice) const {
  return store(character, voice).read().takes.size();
}

}  // namespace tavorin
