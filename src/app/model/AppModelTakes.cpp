// Footage coming into a production, the program monitor, the zoom edits beyond adding
// and removing, and the lanes of the timeline. Copying and probing films block, so they
// run on the offloader and land back here.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "app/model/AppModel.hpp"
#include "app/model/ImportRouter.hpp"
#include "app/model/Scope.hpp"
#include "kit/TakesStore.hpp"
#include "kit/Zooms.hpp"
#include "platform/FileManager.hpp"
#include "platform/MusicImport.hpp"
#include "platform/UserDefaults.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using Lane = TimelineGeometry::Lane;

namespace {

std::string fixed(const char* format, double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, v);
  return buffer;
}

std::string percent(double v) { return fixed("%.0f%%", v * 100); }

// Hidden lanes live in the user's defaults, one switch a lane.
std::string hiddenKey(Lane lane) { return "timeline.hidden." + TimelineGeometry::name(lane); }

// The widest stretch a fit shows: a longer film keeps its scroll.
constexpr double fitSeconds = 60;

}  // namespace

// ---- The program monitor -------------------------------------------------------------

AppModel::Viewer AppModel::viewer() const {
  if (monitorStill_) return Viewer::still;
  const auto take = monitorTake();
  if (!take || !baseDir_) return Viewer::empty;
  std::error_code ec;
  if (!fs::is_regular_file(TakesStore(*baseDir_).video(*take), ec)) return Viewer::missing;
  return Viewer::take;
}

std::optional<std::string> AppModel::clearMonitor() {
  if (!isOpen()) throw Failure::noProduction();
  const auto take = monitorTake();
  if (!take && !monitorStill_) throw Failure::noTakeOnMonitor();
  monitorCleared_ = true;
  monitorStill_.reset();
  pickedTake_.reset();
  if (take) note("took " + take->id + " off the monitor — it stays in takes/");
  else note("took the still off the monitor");
  return take ? std::optional<std::string>(take->id) : std::nullopt;
}

void AppModel::landTake(const Take& take, const std::string& summary) {
  lastImported_ = take.id;
  selectTake(take.id);
  note(summary);
}

void AppModel::importFilm(const fs::path& file, std::optional<std::string> replacing, Done done) {
  const fs::path dir = *baseDir_;
  const std::string fromVersion = headVersion_.value_or("");
  const std::string digest = Schedule::digest(storedBlocking_, *stored_);
  const auto now = actor_.wallNow();
  struct Landing {
    Take take;
    Footage::Answer answer;
  };
  auto landing = std::make_shared<Landing>();
  offloader_.offload(
      [=] {
        // Probed before it is copied: a file that is not a film leaves nothing behind.
        const auto answer = Footage::probe(file);
        const std::string name = file.filename().string();
        if (!answer.size) throw std::runtime_error(name + " holds no picture that can be read, so it was not imported");
        if (!answer.seconds || !(*answer.seconds > 0))
          throw std::runtime_error(name + " does not say how long it runs, so it was not imported");
        std::string slug = file.stem().string();
        landing->take = TakesStore(dir).importVideo(file, slug, *answer.seconds, fromVersion, digest, std::nullopt, now);
        landing->answer = answer;
      },
      alive_.guard([this, dir, file, replacing, landing, done](std::exception_ptr failed) {
        if (!failed) {
          try {
            if (baseDir_ != dir)
              throw Failure::cannotUse("another production opened before " + file.filename().string() +
                                       " landed; it waits in " + (dir / "takes" / landing->take.id).string());
            probes_[TakesStore(dir).video(landing->take)] = landing->answer;
            const std::string& id = landing->take.id;
            landTake(landing->take, replacing ? "replaced " + *replacing + " with " + id + " — " + *replacing +
                                                    " stays in takes/"
                                              : "imported " + file.filename().string() + " as take " + id);
          } catch (...) {
            failed = std::current_exception();
          }
        }
        if (failed) {
          try {
            std::rethrow_exception(failed);
          } catch (const std::exception& e) {
            note(e.what());
          }
        }
        done(failed);
      }));
}

void AppModel::importFile(const fs::path& file, std::optional<double> at, Done done) {
  requireEditable();
  std::error_code ec;
  if (!fs::exists(file, ec)) throw Failure::cannotUse("no file at " + file.string());
  const auto kind = ImportRouter::kind(file);
  if (!kind)
    throw Failure::cannotUse(file.filename().string() +
                             " is not a film, a sound or a picture, so there is nothing to import it as");
  switch (*kind) {
    case ImportRouter::Kind::video: importFilm(file, std::nullopt, std::move(done)); return;
    case ImportRouter::Kind::still: {
      // A picture shows on the monitor in place of any take; the cut keeps its take.
      monitorStill_ = fs::absolute(file, ec);
      note("the monitor shows the still " + file.filename().string());
      actor_.post(alive_.guard([done] { done(nullptr); }));
      return;
    }
    case ImportRouter::Kind::audio: {
      const fs::path dir = *baseDir_;
      const double place = at.value_or(playhead_);
      auto copied = std::make_shared<MusicImport::Copied>();
      offloader_.offload([dir, file, copied] { *copied = MusicImport::copyIn(dir, file); },
                         alive_.guard([this, dir, place, copied, done](std::exception_ptr failed) {
                           if (!failed) {
                             try {
                               if (baseDir_ != dir)
                                 throw Failure::cannotUse("another production opened before " + copied->name +
                                                          " landed");
                               lastImported_ = addMusic(copied->name, copied->seconds, place);
                             } catch (...) {
                               failed = std::current_exception();
                             }
                           }
                           done(failed);
                         }));
      return;
    }
  }
}

void AppModel::replaceTake(const fs::path& file, Done done) {
  requireEditable();
  std::error_code ec;
  if (!fs::exists(file, ec)) throw Failure::cannotUse("no file at " + file.string());
  if (ImportRouter::kind(file) != ImportRouter::Kind::video)
    throw Failure::cannotUse(file.filename().string() + " is not a film, so it cannot stand in for a take");
  const auto old = monitorTake();
  importFilm(file, old ? std::optional<std::string>(old->id) : std::nullopt, std::move(done));
}

void AppModel::revealTake(const std::string& id, Done done) {
  if (!isOpen()) throw Failure::noProduction();
  const TakesStore store(*baseDir_);
  const auto take = store.take(id);
  if (!take) throw Failure::noSuchTake(id);
  const fs::path folder = store.url(*take);
  offloader_.offload([folder] { FileManager::reveal(folder); },
                     alive_.guard([this, id, done](std::exception_ptr failed) {
                       if (!failed) note("showed the folder of take " + id);
                       done(failed);
                     }));
}

std::optional<Footage::Answer> AppModel::probed(const Take& take) const {
  if (!baseDir_) return std::nullopt;
  const auto it = probes_.find(TakesStore(*baseDir_).video(take));
  if (it == probes_.end()) return std::nullopt;
  return it->second;
}

void AppModel::probeTake(const Take& take, std::function<void(const Footage::Answer&)> done) {
  if (!baseDir_) return done(Footage::Answer{});
  if (auto known = probed(take)) return done(*known);
  const fs::path film = TakesStore(*baseDir_).video(take);
  auto answer = std::make_shared<Footage::Answer>();
  offloader_.offload([film, answer] { *answer = Footage::probe(film); },
                     alive_.guard([this, film, answer, done](std::exception_ptr) {
                       // A film that will not say is asked again next time: it may still be copying.
                       if (answer->size) probes_[film] = *answer;
                       done(*answer);
                     }));
}

// ---- The cut, by selection and playhead ------------------------------------------------

std::vector<Cut::Placed> AppModel::selectedSegments() const {
  std::vector<Cut::Placed> out;
  if (!isOpen()) return out;
  for (const auto& p : placedSegments())
    if (std::find(selection_.begin(), selection_.end(), p.segment.id) != selection_.end()) out.push_back(p);
  return out;
}

std::optional<std::string> AppModel::rippleTarget() const {
  if (auto picked = selectedSegments(); !picked.empty()) return picked.front().segment.id;
  if (!isOpen()) return std::nullopt;
  // At a seam the later segment is the one under the playhead.
  std::optional<std::string> found;
  for (const auto& p : placedSegments())
    if (p.start - 0.001 <= playhead_ && playhead_ < p.end()) found = p.segment.id;
  return found;
}

std::string AppModel::rippleDelete() {
  requireEditable();
  const auto target = rippleTarget();
  if (!target) throw Failure::cannotCut("there is no picture under the playhead to take out");
  removeSegment(*target);
  return *target;
}

// ---- Zooms ----------------------------------------------------------------------------

std::vector<Zoom> AppModel::zooms() const { return isOpen() ? Zooms::list(*stored_) : std::vector<Zoom>{}; }

std::vector<Zoom> AppModel::selectedZooms() const {
  std::vector<Zoom> out;
  for (const auto& z : zooms())
    if (std::find(selection_.begin(), selection_.end(), z.id) != selection_.end()) out.push_back(z);
  return out;
}

void AppModel::commitZoom(Recording next, const std::string& summary) {
  remember("the zoom");
  setRecording(std::move(next));
  scheduleDraft();
  note(summary);
}

std::string AppModel::duplicateZoom(const std::string& id, std::optional<double> at) {
  requireEditable();
  if (!Zooms::zoom(id, *stored_)) throw Failure::noSuchZoom(id);
  Recording next = *stored_;
  const auto copy = Zooms::duplicate(next, id, at);
  if (!copy) throw Failure::cannotZoom("no room beside " + id + " for a copy — zooms sit one at a time");
  commitZoom(std::move(next), "duplicated " + id + " → " + *copy);
  return *copy;
}

void AppModel::changeZoom(const std::string& id, const ZoomChange& change) {
  requireEditable();
  if (!Zooms::zoom(id, *stored_)) throw Failure::noSuchZoom(id);
  if (change.style && *change.style != "smooth" && *change.style != "spring")
    throw Failure::badChoice(*change.style, "style", "smooth | spring");
  Recording next = *stored_;
  std::vector<std::string> said;
  if (change.at) {
    if (!Zooms::move(next, id, *change.at))
      throw Failure::cannotZoom("zoom " + id + " has nowhere to land there — the zoom beside it is in the way");
    const Zoom& z = *Zooms::zoom(id, next);
    said.push_back("zoom " + id + " " + Zooms::summary(z) + " from " + fixed("%.2fs", z.from));
  }
  if (change.from || change.to) {
    if (!Zooms::resize(next, id, change.from, change.to))
      throw Failure::cannotZoom("zoom " + id + " cannot reach there — a zoom holds at least " +
                                fixed("%.2fs", Zooms::minLength));
    const Zoom& z = *Zooms::zoom(id, next);
    said.push_back("zoom " + id + " runs " + fixed("%.2fs", z.to - z.from));
  }
  if (change.scale) {
    Zooms::setScale(next, id, *change.scale);
    said.push_back("zoom " + id + " closes to " + fixed("%.2f", Zooms::zoom(id, next)->scale) + "×");
  }
  if (change.x || change.y) {
    const Zoom::Anchor now = Zooms::zoom(id, next)->anchor.value_or(Zoom::Anchor{});
    Zooms::setAnchor(next, id, change.x.value_or(now.x), change.y.value_or(now.y));
    const Zoom::Anchor a = *Zooms::zoom(id, next)->anchor;
    said.push_back("zoom " + id + " aims at " + percent(a.x) + " × " + percent(a.y));
  }
  if (change.style) {
    Zooms::setStyle(next, id, *change.style);
    said.push_back("zoom " + id +
                   (*change.style == "spring" ? " arrives fast and settles" : " eases in and eases out"));
  }
  if (change.ramp) {
    Zooms::setRamp(next, id, *change.ramp);
    said.push_back("zoom " + id + " moves over " + fixed("%.2fs", Zooms::ramp(*Zooms::zoom(id, next))));
  }
  if (next == *stored_) return;
  remember("the zoom");
  setRecording(std::move(next));
  scheduleDraft();
  for (auto& line : said) note(std::move(line));
}

// ---- Lanes ------------------------------------------------------------------------------

std::set<Lane> AppModel::hiddenLanes() const {
  if (!hiddenLanes_) {
    std::set<Lane> hidden;
    const UserDefaults defaults = UserDefaults::standard();
    for (Lane l : TimelineGeometry::hideable(true))
      if (defaults.boolValue(hiddenKey(l)).value_or(false)) hidden.insert(l);
    hiddenLanes_ = hidden;
  }
  return *hiddenLanes_;
}

void AppModel::setLaneHidden(Lane lane, bool hidden) {
  if (lane == Lane::ruler) throw Failure::cannotUse("the ruler never hides");
  auto lanes = hiddenLanes();
  if (hidden) lanes.insert(lane);
  else lanes.erase(lane);
  hiddenLanes_ = lanes;
  note((hidden ? "hid the " : "showed the ") + TimelineGeometry::name(lane) + " lane");
  saveDefault(hiddenKey(lane), hidden, "the hidden lanes did not save: ");
}

void AppModel::showAllLanes() {
  for (Lane l : hiddenLanes()) setLaneHidden(l, false);
}

std::vector<Lane> AppModel::visibleLanes() const { return TimelineGeometry::visible(Scope::scripting(), hiddenLanes()); }

void AppModel::setLaneMuted(Lane lane, bool muted) {
  if (lane != Lane::voice && lane != Lane::music)
    throw Failure::cannotUse(TimelineGeometry::name(lane) +
                             " lane makes no sound, so there is nothing to mute. Try: voice or music");
  if (muted) mutedLanes_.insert(lane);
  else mutedLanes_.erase(lane);
  note((muted ? "muted the " : "unmuted the ") + TimelineGeometry::name(lane) + " lane");
}

Recording AppModel::audible() const {
  Recording out = *stored_;
  // A muted voice lane keeps its lines in place, silent, as lines without audio play.
  if (mutedLanes_.count(Lane::voice))
    for (auto& item : out.timeline)
      if (item.type == ItemType::line && item.audio) {
        item.hold = item.effectiveDuration();
        item.audio.reset();
      }
  if (mutedLanes_.count(Lane::music))
    std::erase_if(out.timeline, [](const TimelineItem& item) { return item.type == ItemType::audio; });
  return out;
}

void AppModel::zoomTimeline(double px) {
  if (std::isnan(px) || px < 1 || px > 400)
    throw Failure::cannotUse("the timeline zooms from 1 to 400 pixels a second, not " + fixed("%g", px));
  pxPerSecond_ = px;
  fitted_ = false;
}

double AppModel::fitTimeline(double width) {
  const double length = isOpen() ? geometry().total : 0;
  const double shown = std::clamp(length, 1.0, fitSeconds);
  pxPerSecond_ = std::clamp(width / shown, 1.0, 400.0);
  fitted_ = true;
  return pxPerSecond_;
}

TimelineGeometry AppModel::geometry() const {
  const auto take = monitorTake();
  std::vector<TimelineGeometry::Mark> marks;
  int ordinal = 0;
  for (const auto& cue : cues_) {
    ++ordinal;
    marks.push_back({"c" + std::to_string(ordinal), cue.time, cue.label});
  }
  return TimelineGeometry(recording(), take ? take->footage() : 0, pxPerSecond_, visibleLanes(), std::move(marks));
}

}  // namespace tavorin
