// The sheets that stand over a page: export (with the YouTube rows), the render queue,
// the casting room, the shoot's slate and the permissions ritual. Each draws from the
// model as it stands this frame; its controls call what the matching verbs call.
#include <imgui.h>
#include <imgui_stdlib.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "app/model/AppStore.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/shoot/Shoot.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/Export.hpp"
#include "kit/PublishRequest.hpp"
#include "operator/OperatorCommand.hpp"
#include "ui/Surfaces.hpp"

namespace tavorin {

namespace {

constexpr double sheetTop = 44 + 24;  // under the top bar
constexpr float labelColumn = 110;

std::string megabytes(long long bytes) {
  char b[32];
  std::snprintf(b, sizeof b, "%.1f MB", double(bytes) / 1e6);
  return b;
}

std::string wholeSeconds(double s) {
  char b[32];
  std::snprintf(b, sizeof b, "%.0f s", s);
  return b;
}

void rowLabel(const char* label) {
  ImGui::AlignTextToFramePadding();
  ImGui::TextUnformatted(label);
  ImGui::SameLine(labelColumn);
}

void heading(ImFont* font, const std::string& text) {
  ImGui::PushFont(font);
  ImGui::TextUnformatted(text.c_str());
  ImGui::PopFont();
}

}  // namespace

void Surfaces::attachService(OperatorService* service, Perform perform) {
  service_ = service;
  perform_ = std::move(perform);
}

bool Surfaces::choice(const std::string& id, const std::string& label, const std::string& help, bool on, bool enabled) {
  if (on) ImGui::PushStyleColor(ImGuiCol_Button, ImGui::GetStyle().Colors[ImGuiCol_ButtonActive]);
  const bool clicked = button(id, label, help, enabled);
  if (on) ImGui::PopStyleColor();
  return clicked && !on;
}

// ---- Export ---------------------------------------------------------------------------

void Surfaces::drawExportSheet(double width, double height) {
  const double w = 620, h = std::min(height - sheetTop - 16, 560.0);
  ImGui::SetNextWindowFocus();
  beginPanel("export.sheet", "Export", (width - w) / 2, sheetTop, w, h, true, true);
  const ExportTarget target = model_.exportTarget();
  const bool running = model_.exportRunning();
  heading(theme_.heading, store_.exportSheetArmed ? "Export to YouTube" : "Export");

  // What is filmed decides what the choices can be.
  const auto take = model_.exportTake();
  const auto missing = model_.missingFootage();
  rowLabel("Take");
  const std::string takeSays = take ? "Take " + take->id : missing.value_or("No take");
  ImGui::TextUnformatted(takeSays.c_str());
  note("export.take", "readout", takeSays, "The film comes from this take: the monitor's when complete, else the newest.");
  const Footage::Answer film = model_.exportFootage();

  rowLabel("Format");
  for (ExportFormat f : {ExportFormat::mp4, ExportFormat::gif}) {
    if (choice("export.format." + name(f), f == ExportFormat::mp4 ? "MP4" : "GIF",
               f == ExportFormat::mp4 ? "Carries the narration; what YouTube takes."
                                      : "Silent, at most 1280 across and 15 frames a second.",
               target.effectiveFormat() == f, !running))
      act([&] { model_.setExportFormat(f); });
    ImGui::SameLine();
  }
  ImGui::NewLine();

  rowLabel("Size");
  const std::string sizeNow = Export::sizeId(target);
  // A size only takes height away: one above the film's is not offered.
  const int tallest = film.size ? int(film.size->height) : std::numeric_limits<int>::max();
  for (const ExportSizeChoice& c : Export::sizes()) {
    const bool fits = c.height.value_or(0) <= tallest;
    if (choice("export.size." + c.id, c.title, fits ? "Lines of picture the file comes out at." : "Taller than the film.",
               sizeNow == c.id, fits && !running))
      act([&] { model_.setExportHeight(c.height); });
    ImGui::SameLine();
  }
  ImGui::NewLine();

  rowLabel("Frame rate");
  const std::string rateNow = Export::rateId(target);
  for (const ExportRateChoice& c : Export::rates(film.rate.value_or(30))) {
    if (choice("export.rate." + c.id, c.title, "Frames a second; never more than the film's own.", rateNow == c.id,
               !running))
      act([&] { model_.setExportFps(c.fps); });
    ImGui::SameLine();
  }
  ImGui::NewLine();

  rowLabel("Quality");
  for (ExportQuality q : {ExportQuality::studio, ExportQuality::balanced, ExportQuality::web, ExportQuality::small}) {
    if (choice("export.quality." + name(q), Export::title(q), Export::sentence(q), target.effectiveQuality() == q,
               !running))
      act([&] { model_.setExportQuality(q); });
    ImGui::SameLine();
  }
  ImGui::NewLine();
  ImGui::SetCursorPosX(labelColumn);
  const std::string says = Export::sentence(target.effectiveQuality());
  ImGui::TextDisabled("%s", says.c_str());
  note("export.quality.says", "readout", says, "What the chosen quality is good for.");

  rowLabel("Destination");
  for (ExportDestination d : {ExportDestination::file, ExportDestination::clipboard, ExportDestination::youtube}) {
    const auto refusal = Export::destinationRefusal(target.effectiveFormat(), d);
    if (choice("export.destination." + name(d), Export::title(d), refusal.value_or("Who receives the finished file."),
               target.effectiveDestination() == d, !refusal && !running))
      act([&] { model_.setExportDestination(d); });
    ImGui::SameLine();
  }
  ImGui::NewLine();
  if (target.effectiveDestination() == ExportDestination::file) {
    rowLabel("Folder");
    const auto& folder = model_.deliveryFolder();
    const std::string where = folder ? folder->string() : "Asked when you export; export/ keeps the original.";
    ImGui::TextUnformatted(where.c_str());
    note("export.folder", "readout", where, "The folder the finished film is copied to.");
  }

  if (const auto estimate = model_.exportEstimate()) {
    std::string line = "About " + wholeSeconds(estimate->seconds);
    if (estimate->bytes) line += " · " + megabytes(*estimate->bytes);
    if (const auto size = model_.exportSize()) line += " · " + size->frame();
    if (!estimate->learned) line += " (first guess)";
    rowLabel("Estimate");
    ImGui::TextUnformatted(line.c_str());
    note("export.estimate", "readout", line, "What the next run should cost, in time and in bytes.");
  }

  if (target.effectiveDestination() == ExportDestination::youtube && service_) {
    ImGui::Separator();
    drawYouTubeRows();
  }

  ImGui::Separator();
  if (const FilmExporter* e = model_.exporter()) {
    if (running) {
      char overlay[32];
      std::snprintf(overlay, sizeof overlay, "%.0f%%", e->progress() * 100);
      ImGui::ProgressBar(float(e->progress()), ImVec2(-120, 0), overlay);
      note("export.progress", "progress", overlay, "How far ffmpeg has come.");
      ImGui::SameLine();
      if (button("export.cancel", "Cancel", "Stop the export; nothing is left half-written."))
        act([&] { model_.cancelExport(); });
    } else if (e->phase() == FilmExporter::Phase::done && e->output()) {
      const std::string line = "Written to " + e->output()->filename().string();
      ImGui::TextUnformatted(line.c_str());
      note("export.output", "readout", line, "The film is in the production's export folder.");
    } else if (e->phase() == FilmExporter::Phase::failed) {
      const std::string line = e->failure().value_or("The export failed.");
      ImGui::TextColored(ImVec4(1, 0.55f, 0.5f, 1), "%s", line.c_str());
      note("export.failure", "readout", line, "Why the last run stopped.");
    }
  }

  ImGui::SetCursorPosY(float(h - 44));
  const auto refusal = model_.canExport();
  const ExportDestination destination = target.effectiveDestination();
  const bool choosing = model_.choosingDeliveryFolder();
  const std::string help = choosing ? "The folder chooser is open; the export runs once a folder is chosen."
                                    : refusal.value_or("Make the film into the export folder.");
  if (button("export.run", Export::act(destination), help, !refusal && !running && !choosing))
    act([&] { model_.exportFromSheet(); });
  ImGui::SameLine();
  if (button("export.dismiss", "Close", "Close the sheet; a running export goes on."))
    act([&] { store_.dismissExportSheet(); });
  endPanel();
}

void Surfaces::drawYouTubeRows() {
  Outside& outside = service_->outside();
  YouTubeAccount& account = outside.account;
  rowLabel("YouTube");
  const std::string status = account.status();
  ImGui::TextUnformatted(status.c_str());
  note("youtube.status", "readout", status, "The account the upload goes to.");
  ImGui::SameLine();
  const bool connecting = account.state() == YouTubeAccount::State::connecting;
  if (button("youtube.connect", account.button(), "Sign in through the browser; it comes back on its own.",
             !connecting && account.store().hasClient()))
    perform_(OperatorCommand{"youtube.connect", {{"consent", account.state() == YouTubeAccount::State::connected ? "1" : "0"}}});

  rowLabel("Privacy");
  for (auto p : {PublishRequest::Privacy::privateVideo, PublishRequest::Privacy::unlisted,
                 PublishRequest::Privacy::publicVideo}) {
    if (choice("youtube.privacy." + raw(p), title(p), sentence(p), account.privacy() == p))
      perform_(OperatorCommand{"youtube.privacy", {{"privacy", raw(p)}}});
    ImGui::SameLine();
  }
  ImGui::NewLine();
  ImGui::SetCursorPosX(labelColumn);
  ImGui::TextDisabled("%s", sentence(account.privacy()).c_str());
  note("youtube.privacy.says", "readout", sentence(account.privacy()), "Who can watch the upload.");

  // The upload's one button, as the publish verbs report it.
  const JSONValue report = service_->publishReport();
  const JSONValue& b = *report["button"];
  const std::string label = b["label"]->stringValue().value_or("Upload to YouTube");
  const std::string says = b["note"]->stringValue().value_or("");
  const bool takesClicks = b["takesClicks"]->boolValue().value_or(false);
  if (button("export.publish", label, says.empty() ? "Send the exported film to YouTube." : says, takesClicks)) {
    const std::string state = b["state"]->stringValue().value_or("idle");
    if (state == "done") {
      // The link opens where the sign-in did: the desktop's browser.
      if (const auto url = b["url"]->stringValue(); url && outside.openBrowser) outside.openBrowser(*url);
    } else if (state == "needsCredentials") {
      perform_(OperatorCommand{"youtube.connect", {}});
    } else {
      perform_(OperatorCommand{"publish.youtube", {}});
    }
  }
  if (!says.empty()) {
    ImGui::SameLine();
    ImGui::TextDisabled("%s", says.c_str());
  }
}

// ---- The render queue -------------------------------------------------------------------

void Surfaces::drawRenderQueue(double width, double height) {
  RenderQueue& queue = model_.renders();
  std::vector<std::string> tickets;
  if (queue.current()) tickets.push_back(*queue.current());
  for (const auto& t : queue.pending()) tickets.push_back(t);
  const double rows = double(std::min<std::size_t>(tickets.size(), 6));
  const double w = 420, h = 96 + 30 * rows;
  beginPanel("render.queue", "Renders", 16, height - h - 16, w, h, false, true);
  (void)width;
  const std::string title = std::to_string(queue.depth()) + (queue.depth() == 1 ? " render" : " renders") + " waiting";
  heading(theme_.heading, title);
  std::size_t shown = 0;
  for (const auto& t : tickets) {
    if (++shown > 6) break;
    ImGui::PushID(t.c_str());
    const bool now = queue.current() && *queue.current() == t;
    std::string line = t + (now ? "  rendering" : "  queued");
    if (now)
      if (const auto elapsed = queue.currentElapsed()) line += " " + RenderQueue::elapsedWords(*elapsed);
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted(line.c_str());
    note("render.ticket." + t, "row", line, now ? "What the engine speaks now." : "Waiting its turn.");
    ImGui::SameLine(float(w - 90));
    if (button("render.cancel." + t, "Cancel", now ? "Throw its result away when it comes." : "Take it off the queue.")) {
      act([&] {
        queue.cancel(t);
        model_.note("cancelled the render of " + t);
      });
    }
    ImGui::PopID();
  }
  ImGui::SetCursorPosY(float(h - 40));
  if (button("render.cancel", "Cancel all", "Empty the queue; a render under way is thrown away when it lands."))
    act([&] {
      queue.cancel();
      model_.note("cancelled every render");
    });
  endPanel();
}

// ---- The casting room ---------------------------------------------------------------------

void Surfaces::drawCastingRoom(double width, double height) {
  const auto& call = *model_.castingCall();
  const double w = 640, h = std::min(height - sheetTop - 16, 520.0);
  ImGui::SetNextWindowFocus();
  beginPanel("casting.room", "Casting", (width - w) / 2, sheetTop, w, h, false, true);
  heading(theme_.heading, call.line ? "Casting " + *call.line : "Casting the production");
  for (const std::string tab : {"voices", "past"}) {
    const bool voices = tab == "voices";
    if (choice("casting.tab." + tab, voices ? "Voices" : "Past",
               voices ? "The character's voices, to pick and hear." : "The auditions kept, newest first, to hear again.",
               call.tab == tab))
      act([&] { model_.castingTab(tab); });
    ImGui::SameLine();
  }
  ImGui::NewLine();
  const std::vector<DriverCharacter> cast = model_.cast();
  const float listHeight = float(h - 236);
  ImGui::BeginChild("casting.characters", ImVec2(180, listHeight));
  for (const DriverCharacter& c : cast) {
    if (ImGui::Selectable((c.name + "##casting.character." + c.id).c_str(), c.id == call.character))
      act([&] { model_.castingPick(c.id, c.defaultVoiceId()); });
    note("casting.character." + c.id, "row", c.name, "Show " + c.name + "'s voices.");
  }
  ImGui::EndChild();
  ImGui::SameLine();
  ImGui::BeginChild("casting.voices", ImVec2(0, listHeight));
  const DriverCharacter* person = nullptr;
  for (const DriverCharacter& c : cast)
    if (c.id == call.character) person = &c;
  if (person && call.tab == "past")
    drawKeptAuditions(*person, call.voice);
  else if (person)
    for (const DriverVoice& v : person->voices) {
      const std::size_t kept = model_.auditions().count(person->id, v.id);
      std::string label = v.name + (kept ? "  (" + std::to_string(kept) + " kept)" : "");
      if (ImGui::Selectable((label + "##casting.voice." + v.id).c_str(), call.voice && *call.voice == v.id))
        act([&] { model_.castingPick(person->id, v.id); });
      note("casting.voice." + v.id, "row", label, v.enabled ? "Pick this voice to hear it." : "The engine has it turned off.",
           v.enabled);
    }
  ImGui::EndChild();

  if (!auditionWords_) auditionWords_ = std::string(AppModel::castingPrompt);
  rowLabel("Words");
  ImGui::SetNextItemWidth(-1);
  ImGui::InputText("##casting.prompt", &*auditionWords_);
  note("casting.prompt", "field", "Words", "What the audition says.");

  const auto* auditions = model_.auditionsIfMade();
  const std::string state = auditions && auditions->failure()    ? *auditions->failure()
                            : auditions && auditions->speaking() ? "Playing: " + *auditions->speaking()
                            : auditions && !auditions->requests().empty()
                                ? "Rendering " + std::to_string(auditions->requests().size()) + " audition(s)"
                                : std::string("Pick a voice, type a line, hear it said.");
  ImGui::TextWrapped("%s", state.c_str());
  note("casting.state", "readout", state, "What the room is doing.");

  ImGui::SetCursorPosY(float(h - 44));
  const bool voiced = call.voice.has_value();
  if (button("casting.audition", "Audition", "Render the words in this voice and play them.", voiced))
    act([&] { model_.auditionFromRoom(call.character, call.voice, *auditionWords_); });
  ImGui::SameLine();
  if (button("casting.hear", "Hear", "Play the voice's own clip, or a short line in it.", voiced))
    act([&] { model_.hear(call.character, call.voice); });
  ImGui::SameLine();
  if (button("casting.use", call.line ? "Cast on " + *call.line : "Cast", "Cast this voice; the room stays open.",
             voiced && !model_.isReadOnly()))
    act([&] { model_.castingUse(call.character, *call.voice); });
  ImGui::SameLine();
  if (button("casting.close", "Close", "Close the room; auditions stop.")) act([&] { store_.endFlow(); });
  endPanel();
}

// The auditions kept for the picked voice, or for each of the character's voices when
// none is picked; a row plays its take again.
void Surfaces::drawKeptAuditions(const DriverCharacter& person, const std::optional<std::string>& picked) {
  Auditions& auditions = model_.auditions();
  bool any = false;
  for (const DriverVoice& v : person.voices) {
    if (picked && *picked != v.id) continue;
    const auto takes = auditions.takes(person.id, v.id);
    for (std::size_t k = 0; k < takes.size(); ++k) {
      const Auditions::Take& take = takes[k];
      char length[32];
      std::snprintf(length, sizeof length, "%.1f s", take.duration);
      std::string words = take.prompt.size() > 60 ? take.prompt.substr(0, 57) + "..." : take.prompt;
      const std::string label = (picked ? "" : v.name + ": ") + words + " · " + length;
      const std::string id = "casting.past." + v.id + "." + std::to_string(k + 1);
      const bool playing = auditions.playing() == person.id + "/" + take.file;
      if (ImGui::Selectable((label + "##" + id).c_str(), playing))
        act([&] { auditions.playTake(person.id, v.id, take); });
      note(id, "row", label, "Hear this take again.");
      any = true;
    }
  }
  if (!any) {
    const std::string none = "Nothing kept yet: an audition stays here once it is heard.";
    ImGui::TextDisabled("%s", none.c_str());
    note("casting.past.none", "readout", none, "The room keeps every audition with its voice.");
  }
}

// ---- The shoot's slate --------------------------------------------------------------------

void Surfaces::drawSlate(double width, double height) {
  const double w = 520, h = 260;
  (void)height;
  ImGui::SetNextWindowFocus();
  beginPanel("shoot.slate", "Shoot", (width - w) / 2, sheetTop, w, h, false, true);
  heading(theme_.heading, "Shoot");
  if (!service_) {
    ImGui::TextWrapped("The slate is up: tavorinctl record rolls the camera; the stage script performs itself.");
  } else {
    Shoot& shoot = service_->stage().shoot();
    PermissionsRitual& ritual = service_->permissions();
    // The camera check: the same one a roll runs first.
    std::string camera = "Camera not checked yet.";
    if (ritual.checkingCamera()) camera = "Checking the camera…";
    else if (const auto& v = ritual.camera()) {
      switch (v->kind) {
        case CameraVerdict::Kind::proven: {
          char b[64];
          std::snprintf(b, sizeof b, "Camera works: a frame in %.2f s.", v->secondsToFirstFrame);
          camera = b;
          break;
        }
        case CameraVerdict::Kind::blocked: camera = "macOS is waiting for you to confirm screen capture."; break;
        case CameraVerdict::Kind::noAccess:
          camera = "Screen Recording is off in System Settings. Turn it on, then relaunch Tavorin.";
          break;
        case CameraVerdict::Kind::noTarget: camera = "No window or display was found. The check proved nothing."; break;
      }
    }
    rowLabel("Camera");
    ImGui::TextUnformatted(camera.c_str());
    note("shoot.camera.says", "readout", camera, "What the last camera check saw.");
    rowLabel("Roll");
    const std::string says = shoot.phase() == Shoot::Phase::counting ? std::to_string(shoot.counting()) : shoot.report();
    if (shoot.phase() == Shoot::Phase::counting) ImGui::PushFont(theme_.heading);
    ImGui::TextUnformatted(says.c_str());
    if (shoot.phase() == Shoot::Phase::counting) ImGui::PopFont();
    note("shoot.countdown", "readout", says, "The count before the camera rolls, then where the take is.");

    ImGui::SetCursorPosY(float(h - 44));
    const bool rolling = shoot.isRolling();
    if (button("shoot.camera", "Check camera", "Film one frame of this window, within three seconds.",
               !rolling && !ritual.checkingCamera()))
      act([&] { ritual.recheckCamera(); });
    ImGui::SameLine();
    if (rolling) {
      if (button("shoot.cut", "Cut", "Stop the take; during the count nothing is written."))
        perform_(OperatorCommand{"record.stop", {}});
    } else if (button("shoot.record", "Record", "Camera check, count, the stage script performs, the tail, the cut.",
                      model_.isOpen() && !model_.isReadOnly())) {
      perform_(OperatorCommand{"record", {}});
    }
    ImGui::SameLine();
  }
  if (service_ == nullptr) ImGui::SetCursorPosY(float(h - 44));
  if (button("shoot.dismiss", "Close", "Close the slate.")) act([&] { store_.endFlow(); });
  endPanel();
}

// ---- The permissions ritual ---------------------------------------------------------------

void Surfaces::drawPermissionsSheet(double width, double height) {
  PermissionsRitual& ritual = service_->permissions();
  const double w = 660, h = std::min(height - sheetTop - 16, 420.0);
  ImGui::SetNextWindowFocus();
  beginPanel("permissions.sheet", "Permissions", (width - w) / 2, sheetTop, w, h, false, true);
  heading(theme_.heading, "What Tavorin needs");
  for (const PermissionsRitual::Row& row : ritual.rows()) {
    const std::string id = "permissions." + word(row.need);
    ImGui::PushID(id.c_str());
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted(row.title.c_str());
    note(id + ".title", "text", row.title, row.line);
    ImGui::SameLine(float(w - 150));
    const Need need = row.need;
    if (button(id + ".act", row.button.label, row.line, row.button.enabled))
      act([&] { ritual.act(need); });
    ImGui::TextWrapped("%s", row.line.c_str());
    if (row.note) ImGui::TextDisabled("%s", row.note->c_str());
    ImGui::PopID();
  }
  ImGui::Separator();
  ImGui::TextDisabled("%s", ritual.identityLine().c_str());
  if (ritual.showsStaleNote()) ImGui::TextDisabled("%s", PermissionsRitual::staleNote().c_str());
  ImGui::SetCursorPosY(float(h - 44));
  if (button("permissions.dismiss", "Not now", "Hide the sheet until the next launch or an explicit ask."))
    perform_(OperatorCommand{"permissions.dismiss", {}});
  endPanel();
}

void Surfaces::drawFetchSheet(double width, double height) {
  (void)height;
  const double w = 520, h = 230;
  ImGui::SetNextWindowFocus();
  beginPanel("fetch.sheet", "Fetch audio", (width - w) / 2, sheetTop, w, h, false, true);
  ImGui::PushFont(theme_.heading);
  ImGui::TextUnformatted("Fetch audio");
  ImGui::PopFont();
  AppStore::FetchAsk& ask = store_.fetchAsk;
  ImGui::TextUnformatted("URL");
  ImGui::SameLine(110);
  if (auto url = field("fetch.url", "URL", ask.url, "YouTube (or any yt-dlp-supported) URL.", false, 380))
    ask.url = *url;
  if (auto start = numberField("fetch.start", "Start", ask.start, "Seconds from the start of the source."))
    ask.start = *start;
  if (auto end = numberField("fetch.end", "End", ask.end, "Seconds into the source.")) ask.end = *end;
  ImGui::SetCursorPosY(float(h - 44));
  if (button("fetch.go", "Fetch", "Fetch the slice onto the music lane at the playhead.", !ask.url.empty()))
    act([&] { store_.fetchFromSheet(); });
  ImGui::SameLine();
  if (button("fetch.dismiss", "Close", "Close the sheet; a running fetch goes on."))
    act([&] { store_.dismissFetchSheet(); });
  endPanel();
}

}  // namespace tavorin
