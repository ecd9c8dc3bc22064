// The life of a production in the model: open, draft, save, revert, versions.
#include <chrono>
#include <system_error>

#include "app/model/AppModel.hpp"
#include "base/AtomicFile.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/Variant.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::optional<fs::path> AppModel::blockingURL() const {
  if (!baseDir_) return std::nullopt;
  const std::string name = stored_ && stored_->blocking && !stored_->blocking->empty() ? *stored_->blocking : "blocking.stage";
  return *baseDir_ / name;
}

std::string AppModel::shortVersion(const std::string& name) { return RecordingStore::shortVersion(name); }

std::string AppModel::resolveVersion(const std::string& name) const {
  try {
    return RecordingStore::resolveVersion(name, versions_);
  } catch (const VersionNotFound& e) {
    throw Failure::noSuchVersion(name, e.recent);
  }
}

void AppModel::readManifest(const RecordingStore& store) {
  const auto manifest = store.manifest();
  headVersion_ = manifest.head;
  versions_ = manifest.versions;
}

Recording AppModel::open(const fs::path& dir) {
  // Leave the present production with its draft on disk.
  flushDraft();
  const RecordingStore store(dir);
  if (!RecordingStore::isProduction(dir)) throw Failure::cannotOpen(dir.string());
  Recording rec = store.loadHead();  // the store's own error passes through; nothing changed yet
  RecordingStore::Manifest manifest = store.manifest();

  selection_.clear();
  hovered_.reset();
  pickedTake_.reset();
  exportTakeId_.reset();
  previewFont_.reset();
  footageAnswers_.clear();
  monitorCleared_ = false;
  monitorStill_.reset();
  lastImported_.reset();
  probes_.clear();
  history_.forget();
  pushedThisTurn_ = false;
  pendingName_.reset();
  pendingMerge_ = false;
  if (onPublishForgotten) onPublishForgotten();
  storeUnrecorded(rec);

  baseDir_ = dir;
  loadBlocking(dir, rec);
  loadVariants(dir, rec);
  markClean();

  headVersion_ = manifest.head;
  versions_ = manifest.versions;
  loadError_.reset();
  viewingVersion_.reset();
  restoredDraft_ = false;
  // Nothing of the last production may go on sounding over this one.
  if (transport_) {
    transport_->stop();
    transport_->setPlayhead(0);
    scheduleTick();
  }
  playhead_ = 0;
  if (exporter_ && !exportRunning()) {
    exporter_->forgetFinished();
    exporter_->forgetOutput();
  }
  if (clearStage) clearStage();

  sessionWriter_.write(session_, [dir](const SessionStore& s) { s.rememberProduction(dir); });
  note("opened " + rec.title + " — " + std::to_string(rec.lines().size()) + " lines");
  restoreDraftIfAny(store);
  return *stored_;
}

void AppModel::loadBlocking(const fs::path& dir, const Recording& rec) {
  const fs::path file = dir / (rec.blocking && !rec.blocking->empty() ? *rec.blocking : "blocking.stage");
  std::string text;
  std::error_code ec;
  if (fs::exists(file, ec)) {
    try {
      text = RecordingStore::readText(file);
    } catch (const std::exception& e) {
      note(std::string("the blocking script would not read: ") + e.what());
    }
  }
  Hold hold(*this);
  storedBlocking_ = std::move(text);
  compileBlocking();
}

void AppModel::saveBlocking() {
  const auto url = blockingURL();
  if (!url) return;
  std::error_code ec;
  if (savedBlocking_ == storedBlocking_ && fs::exists(*url, ec)) return;
  AtomicFile::write(*url, storedBlocking_);
  savedBlocking_ = storedBlocking_;
  blockingDirty_ = false;
}

VariantsStore::Index AppModel::seededVariants(const fs::path& dir, const Recording& rec) const {
  VariantsStore::Index index;
  auto fileDate = [&](const std::string& relative) {
    std::error_code ec;
    const auto t = fs::last_write_time(dir / relative, ec);
    if (ec) return actor_.wallNow();
    return std::chrono::time_point_cast<std::chrono::system_clock::duration>(std::chrono::file_clock::to_sys(t));
  };
  // Each line's present audio is its first variant.
  for (const auto* line : rec.lines()) {
    if (!line->audio) continue;
    index.lines[line->id].push_back(Variant::speaking(*line, *line->audio, fileDate(*line->audio)));
  }

  // Older texts and casts from every saved version let an unlisted render be attributed.
  std::map<std::string, std::vector<std::string>> texts;
  std::map<std::string, std::vector<VariantsStore::Cast>> casts;
  auto collect = [&](const Recording& r) {
    for (const auto* line : r.lines()) {
      if (line->text) texts[line->id].push_back(*line->text);
      casts[line->id].push_back({r.resolvedCharacter(*line), r.resolvedVoice(*line)});
    }
  };
  collect(rec);
  const RecordingStore store(dir);
  try {
    for (const auto& version : store.manifest().versions) {
      try {
        collect(store.load(version));
      } catch (const std::exception&) {
        // A version that will not read has nothing to tell.
      }
    }
  } catch (const std::exception&) {
    // No manifest means no versions to look through; the open itself reports it.
  }

  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(dir / "audio", ec)) {
    const std::string name = entry.path().filename().string();
    for (const auto* line : rec.lines()) {
      if (!VariantsStore::isRender(name, line->id)) continue;
      const std::string file = "audio/" + name;
      auto& list = index.lines[line->id];
      if (std::any_of(list.begin(), list.end(), [&](const Variant& v) { return v.file == file; })) continue;
      const auto found = VariantsStore::attribute(name, line->id, texts[line->id], casts[line->id]);
      if (!found) continue;
      Variant v;
      v.file = file;
      v.text = found->text;
      v.character = found->character;
      v.voice = found->voice;
      // Measuring a file's length needs the media decoder, which this build lacks.
      v.seconds = 0;
      v.made = fileDate(file);
      list.push_back(v);
    }
  }
  for (auto& [id, list] : index.lines) {
    std::stable_sort(list.begin(), list.end(), [](const Variant& a, const Variant& b) { return a.made < b.made; });
    int n = 0;
    for (auto& v : list) v.number = ++n;
  }
  return index;
}

void AppModel::loadVariants(const fs::path& dir, const Recording& rec) {
  const VariantsStore store(dir);
  try {
    auto loaded = store.load([&] { return seededVariants(dir, rec); }, actor_.wallNow());
    variantIndex_ = std::move(loaded.index);
    if (loaded.note) note(*loaded.note);
  } catch (const std::exception& e) {
    // The index never blocks an open.
    variantIndex_ = VariantsStore::Index{};
    note(std::string("audio/variants.json did not save: ") + e.what());
  }
}

void AppModel::restoreDraftIfAny(const RecordingStore& store) {
  const auto draft = store.readDraft();
  if (!draft) return;
  RecordingStore::Manifest manifest;
  try {
    manifest = store.manifest();
  } catch (const std::exception&) {
    return;
  }
  switch (RecordingStore::standing(*draft, manifest)) {
    case RecordingStore::DraftStanding::restorable: {
      storeUnrecorded(draft->recording);
      loadBlocking(*baseDir_, draft->recording);
      // A script edited but never written to its file lives only in the draft.
      if (draft->blocking && *draft->blocking != storedBlocking_) {
        Hold hold(*this);
        storedBlocking_ = *draft->blocking;
        compileBlocking();
      }
      restoredDraft_ = true;
      settle();
      note("restored unsaved changes from " + draft->savedAt);
      break;
    }
    case RecordingStore::DraftStanding::savedSince:
      // A save cut off after its version landed leaves a draft of exactly what was
      // saved: it holds nothing unsaved, so there is no conflict to report.
      if (stored_ && draft->recording == *stored_ && (!draft->blocking || *draft->blocking == storedBlocking_)) {
        store.clearDraft();
        break;
      }
      loadError_ =
          "There are unsaved changes from an earlier session, but this production has been saved since. Opened "
          "the saved version; the draft is still on disk. `revert` discards it.";
      note("draft conflict: based on " + draft->basedOn + ", head is " + manifest.head);
      break;
    case RecordingStore::DraftStanding::foreign:
      loadError_ = "There are unsaved changes on disk, but they were written against " + draft->basedOn +
                   ", a version this production has never had. That is what a copied draft looks like. Opened the "
                   "saved version; `revert` discards the draft.";
      note("draft is based on " + draft->basedOn + ", which is not in versions/");
      break;
  }
}

void AppModel::save() {
  requireEditable();
  cancelDraft();
  const RecordingStore store(*baseDir_);
  // The script first, so the version points at the script it was saved with.
  saveBlocking();
  const std::string name = store.saveNewVersion(*stored_, actor_.wallNow());
  store.clearDraft();
  try {
    readManifest(store);
  } catch (const std::exception&) {
    headVersion_ = name;
    versions_.push_back(name);
  }
  loadError_.reset();
  restoredDraft_ = false;
  markClean();
  note("saved " + shortVersion(name));
}

void AppModel::revert() {
  if (!baseDir_) throw Failure::noProduction();
  cancelDraft();
  const fs::path dir = *baseDir_;
  RecordingStore(dir).clearDraft();
  open(dir);
  note("reverted to head");
}

void AppModel::openVersion(const std::string& name) {
  if (!stored_ || !baseDir_) throw Failure::noProduction();
  const std::string version = resolveVersion(name);
  if (headVersion_ && version == *headVersion_) {
    // The head is an ordinary open: editable, and its draft comes back.
    open(*baseDir_);
    return;
  }
  flushDraft();
  const RecordingStore store(*baseDir_);
  Recording rec = store.load(version);
  selection_.clear();
  history_.forget();
  storeUnrecorded(rec);
  loadBlocking(*baseDir_, rec);
  markClean();
  viewingVersion_ = version;
  note("viewing " + shortVersion(version) + " (read-only)");
}

void AppModel::makeHead(const std::string& name) {
  if (!stored_ || !baseDir_) throw Failure::noProduction();
  const std::string version = resolveVersion(name);
  flushDraft();
  const fs::path dir = *baseDir_;
  RecordingStore(dir).setHead(version);
  open(dir);
  note("head is now " + shortVersion(version) + " — the next save builds on it");
}

// ---- The draft ------------------------------------------------------------------

void AppModel::scheduleDraft() {
  if (viewingVersion_ || !baseDir_) return;
  cancelDraft();
  draftWork_ = actor_.after(std::chrono::duration_cast<MainActor::Clock::duration>(
                                std::chrono::duration<double>(draftDelay)),
                            alive_.guard([this] { writeDraftNow(); }));
}

void AppModel::cancelDraft() {
  if (draftWork_) {
    draftWork_->cancel();
    draftWork_.reset();
  }
  // Waits only for a draft write already under way, which is one small file.
  std::lock_guard hold(draftLane_->lock);
  ++draftLane_->generation;
}

void AppModel::writeDraftNow() {
  actor_.checkOnActor();
  draftWork_.reset();
  if (!stored_ || !baseDir_ || viewingVersion_) return;
  offloader_.offload(
      [lane = draftLane_, generation = draftLane_->generation, dir = *baseDir_, rec = *stored_,
       blocking = storedBlocking_, now = actor_.wallNow()] {
        std::lock_guard hold(lane->lock);
        // Saved or discarded since this copy was taken: the draft it would write is stale.
        if (lane->generation != generation) return;
        const RecordingStore store(dir);
        store.writeDraft(rec, store.manifest().head, now, blocking);
      },
      alive_.guard([this](std::exception_ptr failure) {
        if (!failure) return;
        // A failed draft must never interrupt editing, so no toast: the feed says
        // why, and the next edit tries again.
        try {
          std::rethrow_exception(failure);
        } catch (const std::exception& e) {
          note(std::string("draft not written: ") + e.what());
        }
      }));
}

void AppModel::writeDraftInPlace() {
  if (!stored_ || !baseDir_ || viewingVersion_) return;
  std::lock_guard hold(draftLane_->lock);
  try {
    const RecordingStore store(*baseDir_);
    store.writeDraft(*stored_, store.manifest().head, actor_.wallNow(), storedBlocking_);
  } catch (const std::exception& e) {
    note(std::string("draft not written: ") + e.what());
  }
}

void AppModel::flushDraft() {
  if (!draftWork_) return;
  cancelDraft();
  // Leaving the production or the process: the draft must be on disk before the
  // next production opens or the process ends, so this one write happens here.
  writeDraftInPlace();
}

}  // namespace tavorin
