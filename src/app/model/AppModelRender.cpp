// The model's side of the render queue: what goes in, what each ticket speaks, and
// how a finished file lands on a line or on a generation's lines.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

#include "app/model/AppModel.hpp"
#include "app/model/ImportRouter.hpp"
#include "voice/AudioFile.hpp"
#include "voice/Silence.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

bool contains(const std::vector<std::string>& list, const std::string& id) {
  return std::find(list.begin(), list.end(), id) != list.end();
}

// A fresh salt per render, so no two takes of the same words share a file name.
std::string freshSalt() {
  static thread_local std::mt19937_64 random{std::random_device{}()};
  char buffer[17];
  std::snprintf(buffer, sizeof buffer, "%016llx", static_cast<unsigned long long>(random()));
  return std::string(buffer, 8);
}

std::string secondsText(double seconds) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.2fs", seconds);
  return buffer;
}

std::string plural(std::size_t n, const std::string& word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::string reflowNote(const Schedule::Reflow& reflow) {
  if (reflow.isEmpty()) return "";
  char delta[32];
  std::snprintf(delta, sizeof delta, "%+.2fs", reflow.delta);
  return " · " + plural(reflow.moved.size(), "line") + " after it moved " + delta;
}

}  // namespace

RenderQueue& AppModel::renders() {
  if (!renders_) {
    renders_ = std::make_unique<RenderQueue>(
        actor_, offloader_, &toasts_, [this] { return driver(); },
        [this](const std::string& ticket) { return renderJob(ticket); },
        [this](const std::string& ticket, const RenderResult& result) { applyRender(ticket, result); },
        [this](bool failed) { drainedRenders(failed); });
  }
  return *renders_;
}

void AppModel::drainedRenders(bool failed) {
  spoken_.clear();
  if (auditions_ && renders_) auditions_->sweep(renders_->states());
  if (renderDrained) renderDrained(failed);
  sound(failed ? SoundCue::failed : SoundCue::done);
  note(failed ? "render queue drained with failures" : "render queue drained");
}

void AppModel::setSampleCount(int n) { sampleCount_ = std::clamp(n, 1, 8); }

std::vector<std::string> AppModel::render(const std::vector<std::string>& ids, bool force, std::optional<int> samples,
                                          bool keepingLanded) {
  requireEditable();
  const int count = samples.value_or(sampleCount_);
  if (count < 1 || count > 8) throw Failure::badSampleCount(std::to_string(count));
  std::vector<std::string> lines;
  for (const auto& id : ids) {
    const TimelineItem* item = stored_->item(id);
    if (item && item->type == ItemType::line && !contains(lines, id)) lines.push_back(id);
  }
  if (lines.empty()) throw Failure::nothingToRender();

  bool grouped = voiceSpan().kind != VoiceSpan::Kind::line;
  if (!grouped)
    for (const auto& group : voiceGroups())
      if (!group.isAlone() && std::any_of(lines.begin(), lines.end(), [&](auto& id) { return contains(group.lineIds, id); }))
        grouped = true;
  if (grouped) return renderGroups(lines, force, count, keepingLanded);

  std::vector<std::string> tickets;
  for (const auto& id : lines) {
    if (count == 1) tickets.push_back(id);
    else
      for (int k = 1; k <= count; ++k) tickets.push_back(id + "#" + std::to_string(k));
  }
  renders().enqueue(tickets);
  if (count == 1) note("queued " + std::to_string(lines.size()) + " line(s) for render");
  else note("queued " + std::to_string(count) + " variants each for " + std::to_string(lines.size()) + " line(s)");
  return lines;
}

std::vector<std::string> AppModel::renderGroups(const std::vector<std::string>& ids, bool force, int samples,
                                                bool keepingLanded) {
  requireEditable();
  const bool lineSpan = voiceSpan().kind == VoiceSpan::Kind::line;
  std::vector<VoiceGroups::Group> groups;
  for (auto& group : voiceGroups()) {
    if (lineSpan && group.isAlone()) continue;
    if (std::any_of(ids.begin(), ids.end(), [&](auto& id) { return contains(group.lineIds, id); }))
      groups.push_back(std::move(group));
  }
  std::vector<std::string> singles;
  for (const auto& id : ids)
    if (std::none_of(groups.begin(), groups.end(), [&](auto& g) { return contains(g.lineIds, id); }))
      singles.push_back(id);

  std::size_t unchanged = 0;
  if (keepingLanded && !force && samples == 1)
    unchanged = std::erase_if(groups, [&](const VoiceGroups::Group& g) { return hasLanded(g); });

  std::vector<std::string> tickets, queued;
  std::map<std::string, std::vector<std::string>> covering;
  auto addTickets = [&](const std::string& base) {
    if (samples == 1) tickets.push_back(base);
    else
      for (int k = 1; k <= samples; ++k) tickets.push_back(base + "#" + std::to_string(k));
  };
  for (const auto& group : groups) {
    covering[group.ticket()] = group.lineIds;
    addTickets(group.ticket());
    queued.insert(queued.end(), group.lineIds.begin(), group.lineIds.end());
  }
  for (const auto& id : singles) {
    addTickets(id);
    queued.push_back(id);
  }
  if (!tickets.empty()) renders().enqueue(tickets, covering);
  std::string words = "queued " + std::to_string(groups.size()) + " generation(s) over " + std::to_string(queued.size()) +
                      " line(s)";
  if (samples > 1) words += ", " + std::to_string(samples) + " variants each";
  if (unchanged > 0)
    words += " · " + std::to_string(unchanged) + " unchanged generation(s) kept; pass force=1 to re-roll";
  note(words);
  return queued;
}

std::vector<std::string> AppModel::renderStale(bool includingApproved) {
  if (!stored_) throw Failure::noProduction();
  std::vector<std::string> ids, held;
  for (const TimelineItem* line : stored_->staleLines()) {
    if (!includingApproved && line->approved.value_or(false)) held.push_back(line->id);
    else ids.push_back(line->id);
  }
  heldBackApproved_ = includingApproved ? std::vector<std::string>{} : held;
  std::vector<std::string> queued;
  if (!ids.empty()) queued = render(ids, false, 1, false);
  if (!held.empty())
    note("held back " + std::to_string(held.size()) + " approved line(s) — re-render them by name, or with approved=1");
  if (ids.empty()) throw Failure::nothingToRender();
  return queued;
}

void AppModel::regenerateAllVoices() {
  if (!stored_) return;
  std::vector<std::string> ids;
  std::size_t held = 0;
  for (const TimelineItem* line : stored_->lines()) {
    if (line->approved.value_or(false)) ++held;
    else ids.push_back(line->id);
  }
  try {
    render(ids, true, std::nullopt, false);
  } catch (const Failure&) {
  }
  if (held > 0) note("held back " + plural(held, "approved line"));
}

bool AppModel::hasLanded(const VoiceGroups::Group& group) const {
  if (!stored_ || group.lineIds.empty()) return false;
  for (const auto& id : group.lineIds) {
    const TimelineItem* line = stored_->item(id);
    if (!line || !line->audio || !line->renderedFrom || line->renderedFrom->group != group.hash) return false;
  }
  return VoiceGroups::rehash(*stored_, group.hash) == group.hash;
}

RenderQueue::Plan AppModel::renderJob(const std::string& ticket) {
  if (RenderQueue::Ticket::isAudition(ticket)) {
    if (auditionJob) return auditionJob(ticket);
    return RenderQueue::Plan::refuse("that audition is no longer waiting");
  }
  const std::string id = RenderQueue::Ticket::line(ticket);
  if (VoiceGroups::isGroupTicket(id)) return groupJob(ticket);
  const TimelineItem* item = stored_ ? stored_->item(id) : nullptr;
  if (!item || item->type != ItemType::line || !baseDir_)
    return RenderQueue::Plan::refuse("no line " + id + " in the open production");
  if (!item->text || item->text->empty()) return RenderQueue::Plan::refuse(id + " has no words to speak");
  const VoicePlan plan = voicePlan(*item, *stored_);
  if (plan.refused()) return RenderQueue::Plan::refuse(*plan.refusal);
  std::error_code ec;
  fs::create_directories(*baseDir_ / "audio", ec);  // a failure shows when the engine writes
  const std::string file = VariantsStore::filename(id, *item->text, plan.character, plan.voice, freshSalt());
  spoken_[file] = Spoken{{{id, *item->text}}, plan.character, plan.voice};
  return RenderQueue::Plan::go({*item->text, plan.character, plan.voice, *baseDir_ / "audio" / file});
}

RenderQueue::Plan AppModel::groupJob(const std::string& ticket) {
  const std::string line = RenderQueue::Ticket::line(ticket);
  if (!VoiceGroups::isGroupTicket(line)) return RenderQueue::Plan::refuse(ticket + " is not a generation group");
  const std::string hash = line.substr(VoiceGroups::mark.size());
  std::optional<VoiceGroups::Group> group;
  if (stored_ && baseDir_)
    for (auto& each : voiceGroups())
      if (each.hash == hash) group = std::move(each);
  if (!group) return RenderQueue::Plan::refuse("that generation group is no longer in the production");
  if (group->text.empty()) return RenderQueue::Plan::refuse("group " + hash + " has no words to speak");
  const TimelineItem* first = group->lineIds.empty() ? nullptr : stored_->item(group->lineIds.front());
  if (!first) return RenderQueue::Plan::refuse("group " + hash + " has no lines");
  const VoicePlan plan = voicePlan(*first, *stored_);
  if (plan.refused()) return RenderQueue::Plan::refuse(*plan.refusal);
  std::error_code ec;
  fs::create_directories(*baseDir_ / "audio", ec);
  const std::string file = group->file(freshSalt());
  Spoken said{{}, plan.character, plan.voice};
  for (const auto& id : group->lineIds)
    if (const TimelineItem* member = stored_->item(id)) said.lines.emplace_back(id, member->text.value_or(""));
  spoken_[file] = said;
  return RenderQueue::Plan::go({group->text, plan.character, plan.voice, *baseDir_ / "audio" / file});
}

void AppModel::applyRender(const std::string& ticket, const RenderResult& result) {
  if (RenderQueue::Ticket::isAudition(ticket)) {
    if (auditionFinished) auditionFinished(ticket, result);
    note("audition ready — " + secondsText(result.duration));
    return;
  }
  const std::string file = result.audioURL.filename().string();
  std::optional<Spoken> said;
  if (auto found = spoken_.find(file); found != spoken_.end()) {
    said = std::move(found->second);
    spoken_.erase(found);
  }
  sampleDurations_[file] = result.duration;

  // A file for a production that has closed since stays on disk, unreferenced.
  std::error_code ec;
  const fs::path folder = result.audioURL.parent_path();
  if (!stored_ || !baseDir_ || fs::weakly_canonical(folder, ec) != fs::weakly_canonical(*baseDir_ / "audio", ec)) {
    note(file + " belongs to a production that is no longer open");
    return;
  }
  const std::string line = RenderQueue::Ticket::line(ticket);
  if (VoiceGroups::isGroupTicket(line)) {
    landGroup(ticket, result, file, std::move(said));
    return;
  }

  const TimelineItem* item = stored_->item(line);
  Variant made;
  made.file = "audio/" + file;
  made.seconds = result.duration;
  made.made = actor_.wallNow();
  if (said && !said->lines.empty()) {
    made.text = said->lines.front().second;
    made.character = said->character;
    made.voice = said->voice;
  } else if (item) {
    made.text = item->text.value_or("");
    made.character = stored_->resolvedCharacter(*item);
    made.voice = stored_->resolvedVoice(*item);
  }
  if (result.usedVoice) made.voice = result.usedVoice;
  if (fellBack_.count(line)) made.split = std::string(VoiceSplit::fallbackMark);
  keepVariant(made, line);

  if (!item) {
    note(line + " is gone; its variant is kept as " + file);
    return;
  }
  if (RenderQueue::Ticket::sample(ticket).value_or(1) > 1) {
    note("variant of " + line + " ready — " + secondsText(result.duration));
    return;
  }
  landLine(line, file, result, said ? &*said : nullptr);
}

void AppModel::landLine(const std::string& id, const std::string& file, const RenderResult& result, const Spoken* said) {
  keepLive(id);
  Recording next = *stored_;
  TimelineItem& line = *next.item(id);
  const double before = line.effectiveDuration().value_or(0);
  line.audio = "audio/" + file;
  line.duration = result.duration;
  RenderedFrom receipt;
  receipt.text = said && !said->lines.empty() ? std::optional<std::string>(said->lines.front().second) : line.text;
  receipt.character = said ? std::optional<std::string>(said->character) : next.resolvedCharacter(line);
  receipt.voice = said ? std::optional<std::string>(said->voice) : next.resolvedVoice(line);
  receipt.used = result.usedVoice;
  if (fellBack_.erase(id)) receipt.split = std::string(VoiceSplit::fallbackMark);
  line.renderedFrom = receipt;
  const auto reflow = Schedule::ripple(next, id, before, next.gap);

  remember("the render", renders_ && renders_->busy());
  setRecording(std::move(next));
  scheduleDraft();
  note("rendered " + id + " — " + secondsText(result.duration) +
       (result.usedVoice ? " (" + *result.usedVoice + ")" : std::string()) + reflowNote(reflow));
}

double AppModel::importVoice(const fs::path& file, const std::string& id) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found || found->type != ItemType::line) throw Failure::noSuchLine(id);
  if (!baseDir_) throw Failure::cannotUse("this production has no folder to copy audio into");
  if (ImportRouter::kind(file) != ImportRouter::Kind::audio) throw Failure::cannotUse(ImportRouter::refusal(file));

  // A fresh name for every import, so no earlier variant's file is ever written over.
  const std::string name = id + "-import-" + freshSalt() + file.extension().string();
  const fs::path copy = *baseDir_ / "audio" / name;
  std::error_code ec;
  fs::create_directories(copy.parent_path(), ec);
  if (!ec) fs::copy_file(file, copy, fs::copy_options::overwrite_existing, ec);
  if (ec) throw Failure::cannotUse(file.filename().string() + " would not copy into audio/: " + ec.message());
  const auto seconds = AudioFile::seconds(copy);
  if (!seconds || !(*seconds > 0)) {
    fs::remove(copy, ec);
    throw Failure::cannotUse(file.filename().string() + " has no length this app can measure. Try a wav or an mp3.");
  }

  Recording next = *stored_;
  TimelineItem& line = *next.item(id);
  const double before = line.effectiveDuration().value_or(0);
  line.audio = "audio/" + name;
  line.duration = std::round(*seconds * 100) / 100;
  RenderedFrom receipt;
  receipt.text = line.text;
  receipt.character = next.resolvedCharacter(line);
  receipt.imported = true;
  receipt.from = file.filename().string();
  line.renderedFrom = receipt;
  Variant variant = Variant::speaking(line, *line.audio, actor_.wallNow());
  variant.imported = true;
  variant.from = file.filename().string();
  const auto reflow = Schedule::ripple(next, id, before, next.gap);

  remember("the line audio");
  setRecording(std::move(next));
  keepVariant(variant, id);
  scheduleDraft();
  note(id + " took " + name + " " + secondsText(*stored_->item(id)->duration) + reflowNote(reflow));
  return *stored_->item(id)->duration;
}

void AppModel::landGroup(const std::string& ticket, const RenderResult& result, const std::string& file,
                         std::optional<Spoken> said) {
  const std::string hash = RenderQueue::Ticket::line(ticket).substr(VoiceGroups::mark.size());
  const bool landing = RenderQueue::Ticket::sample(ticket).value_or(1) == 1;
  // The pauses are ffmpeg's to find, off this thread; the landing comes back here.
  auto log = std::make_shared<std::optional<std::string>>();
  const fs::path path = result.audioURL;
  offloader_.offload([log, path] { *log = Silence::log(path); },
                     alive_.guard([this, log, hash, landing, result, file, said](std::exception_ptr) {
                       const auto pauses = *log ? VoiceSplit::pauses(**log, result.duration)
                                                : std::vector<VoiceSplit::Pause>{};
                       std::optional<VoiceGroups::Group> group;
                       for (auto& each : voiceGroups())
                         if (each.hash == hash) group = std::move(each);
                       if (group && landing && stored_) landSlices(*group, result, pauses, true);
                       else keepSlices(hash, result, file, said, pauses);
                     }));
}

void AppModel::keepSlices(const std::string& hash, const RenderResult& result, const std::string& file,
                          const std::optional<Spoken>& said, const std::vector<VoiceSplit::Pause>& pauses) {
  if (!said || said->lines.empty()) {
    note("generation " + hash + " came back with no lines to give it to; kept as " + file);
    return;
  }
  std::vector<std::string> ids;
  for (const auto& [id, text] : said->lines) ids.push_back(id);
  const auto outcome = VoiceSplit::slice(said->lines, result.duration, pauses);
  if (outcome.refusal) {
    note("variant of " + RenderQueue::name(ids) + " would not split; kept as " + file);
    return;
  }
  VariantWrites oneWrite(*this);
  for (const auto& slice : outcome.sliced) {
    Variant v;
    v.file = "audio/" + file;
    for (const auto& [id, text] : said->lines)
      if (id == slice.id) v.text = text;
    v.character = said->character;
    v.voice = result.usedVoice ? result.usedVoice : std::optional<std::string>(said->voice);
    v.seconds = slice.seconds;
    v.offset = slice.offset;
    v.group = hash;
    v.split = outcome.how;
    v.made = actor_.wallNow();
    keepVariant(v, slice.id);
  }
  note("variant of " + RenderQueue::name(ids) + " ready — " + secondsText(result.duration));
}

void AppModel::landSlices(const VoiceGroups::Group& group, const RenderResult& result,
                          const std::vector<VoiceSplit::Pause>& pauses, bool retrying) {
  std::vector<VoiceSplit::Line> lines;
  for (const auto& id : group.lineIds) {
    const TimelineItem* member = stored_->item(id);
    if (!member) {
      note("group " + group.hash + " lost a line while it rendered");
      return;
    }
    lines.emplace_back(id, member->text.value_or(""));
  }
  const auto outcome = VoiceSplit::slice(lines, result.duration, pauses);
  if (outcome.refusal) {
    if (retrying) splitRefused(group, *outcome.refusal);
    else note(*outcome.refusal);
    return;
  }
  const std::string file = "audio/" + result.audioURL.filename().string();
  const auto oldEnd = Schedule::end(group.lineIds, *stored_);
  const auto voice = result.usedVoice ? result.usedVoice : group.voice;
  VariantWrites oneWrite(*this);
  for (const auto& id : group.lineIds) keepLive(id);

  Recording next = *stored_;
  for (const auto& slice : outcome.sliced) {
    TimelineItem& line = *next.item(slice.id);
    Variant v;
    v.file = file;
    v.text = line.text.value_or("");
    v.character = next.resolvedCharacter(line);
    v.voice = voice;
    v.seconds = slice.seconds;
    v.offset = slice.offset;
    v.group = group.hash;
    v.split = outcome.how;
    v.made = actor_.wallNow();
    keepVariant(v, slice.id);

    line.audio = file;
    line.duration = slice.seconds;
    RenderedFrom receipt;
    receipt.text = line.text;
    receipt.character = next.resolvedCharacter(line);
    receipt.voice = next.resolvedVoice(line);
    receipt.used = result.usedVoice;
    receipt.offset = slice.offset;
    receipt.group = group.hash;
    receipt.split = outcome.how;
    line.renderedFrom = receipt;
  }
  const auto glue = Schedule::glue(next, group.hash, group.lineIds, oldEnd, std::nullopt);
  retriedGroups_.erase(group.hash);
  lastSplitRefusal_.reset();

  remember("the render", renders_ && renders_->busy());
  setRecording(std::move(next));
  scheduleDraft();
  note("rendered " + RenderQueue::name(group.lineIds) + " as one generation — " + secondsText(result.duration) +
       " cut into " + std::to_string(outcome.sliced.size()) + " slice(s) on " + outcome.how +
       (voice ? " (" + *voice + ")" : std::string()) +
       (glue.moved.empty() ? std::string() : " · " + plural(glue.moved.size(), "line") + " after it moved"));
}

void AppModel::splitRefused(const VoiceGroups::Group& group, const std::string& why) {
  lastSplitRefusal_ = why;
  if (retriedGroups_.insert(group.hash).second) {
    note("Cut check failed for generation " + group.hash + " because " + why +
         ". Resending the generation before trying each line alone.");
    renders().enqueue({group.ticket()}, {{group.ticket(), group.lineIds}});
    return;
  }
  retriedGroups_.erase(group.hash);
  fellBack_.insert(group.lineIds.begin(), group.lineIds.end());
  note("group " + group.hash + " fell back to one line at a time — " + why);
  renders().enqueue(group.lineIds);
}

bool AppModel::approveLine(const std::string& id, std::optional<bool> on) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found || found->type != ItemType::line) throw Failure::noSuchLine(id);
  const bool next = on.value_or(!found->approved.value_or(false));
  if (found->approved.value_or(false) == next) return next;
  Recording changed = *stored_;
  changed.item(id)->approved = next ? std::optional<bool>(true) : std::nullopt;
  remember(next ? "the approval" : "the approval taken back");
  setRecording(std::move(changed));
  scheduleDraft();
  note((next ? "approved " : "took back the approval of ") + id);
  return next;
}

}  // namespace tavorin
