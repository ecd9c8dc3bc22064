// A revision written beside the versions a user made: on file for `diff` and
// `version.head`, never put in front of the production on screen.
#include "app/model/AppModel.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

std::string AppModel::landRevision(const std::filesystem::path& dir, const Recording& revised) {
  actor_.checkOnActor();
  const RecordingStore store(dir);
  std::string name;
  try {
    const std::string head = store.manifest().head;
    name = store.saveNewVersion(revised, actor_.wallNow());
    store.setHead(head);
  } catch (const std::exception& e) {
    throw Failure::cannotUse(std::string("revision could not be written: ") + e.what());
  }
  if (baseDir_ && *baseDir_ == dir) {
    try {
      readManifest(store);
    } catch (const std::exception&) {
      versions_.push_back(name);
    }
  }
  note("revision landed as " + shortVersion(name) + " — head unchanged");
  return name;
}

}  // namespace tavorin
