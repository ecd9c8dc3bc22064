#pragma once
#include <asio/awaitable.hpp>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "operator/OperatorCommand.hpp"

namespace tavorin {

class AppStore;
class AppModel;
struct Outside;
struct PublishRequest;
class Stage;
enum class SoundCue;
class PermissionsProbe;
class PermissionsRitual;
struct CameraVerdict;
class OperatorArgs;
class WindowSurface;
struct TimelineItem;
struct Take;
struct Zoom;
struct Recording;

// Turns a verb into an act of the running studio. It holds no logic of its own
// beyond reading arguments, refusing bad ones in set words and shaping reports:
// each verb calls the same operation on the store or the model that a control in
// the window calls, so a control and its verb cannot drift apart.
class OperatorService {
 public:
  // `quit` asks the application to terminate through this hook.
  OperatorService(AppStore& store, std::function<void()> terminate);
  ~OperatorService();

  // Never throws: every refusal is an answer with `ok` false.
  asio::awaitable<OperatorResult> handle(OperatorCommand command);

  // The names the dispatcher answers for: every row of the manifest.
  static const std::set<std::string>& handledVerbs();

  // What a verb runs. It may wait (a render, a recording); the command and its
  // arguments live until it answers.
  using Handler = std::function<asio::awaitable<OperatorResult>(const OperatorCommand&, const OperatorArgs&)>;
  // Whether a verb has a handler of its own; a former spelling answers through the
  // verb it spells and has none.
  bool hasHandler(std::string_view verb) const { return handlers_.count(verb) > 0; }
  // Every verb registered.
  std::set<std::string> registeredVerbs() const;
  // Gives a verb its handler; a verb that has a handler already is refused with
  // logic_error, so no two parts of the studio answer one verb.
  void on(std::string_view verb, Handler handler);

  // The window, once one is open; without it `elements` and `snapshot` answer as a
  // headless studio does. The window outlives the service's use of it.
  void attachWindow(WindowSurface* window) { window_ = window; }

  // What runs the blocking: the desktop's own unless a test gives substitutes.
  void useStage(std::unique_ptr<Stage> stage);
  Stage& stage();

  // The grants' ritual, over the desktop's own probe unless one is given. A new
  // probe starts a new ritual: what the old one learnt at launch is gone with it.
  void usePermissionsProbe(std::unique_ptr<PermissionsProbe> probe);
  PermissionsRitual& permissions();
  // The launch's last step: the sheet rises when it is forced, or when a grant is wanting.
  void raisePermissionsAtLaunch(bool forced);
  // The revision, the fetch, the YouTube account and the upload.
  Outside& outside() { return *outside_; }

  // Reports, shaped for the wire.
  JSONValue status() const;
  // The upload and its button as the Export sheet draws them.
  JSONValue publishReport() const;
  JSONValue buildReport() const;

 private:
  using Answer = std::optional<OperatorResult>;
  using Branch = Answer (OperatorService::*)(const OperatorCommand&, const OperatorArgs&);

  // Verbs that answer at once through their group's branch function.
  void onBranch(Branch branch, std::initializer_list<std::string_view> verbs);

  void registerStatus();
  void registerNav();
  void registerLibrary();
  void registerProduction();
  void registerAgent();
  void registerVersions();
  void registerEdit();
  void registerBlocking();
  void registerChrome();
  void registerTimeline();
  void registerTransport();
  void registerApp();
  void registerPlayback();
  void registerMusic();
  void registerCast();
  void registerLineEdits();
  void registerExport();
  void registerRun();
  void registerRecord();
  void registerSystemReadouts();
  void registerTakes();
  void registerPicture();
  void registerRender();
  void registerCasting();
  void registerSound();
  JSONValue linesReport() const;
  Answer soundVerbs(const OperatorCommand& c, const OperatorArgs& a);
  JSONValue soundReport(std::optional<SoundCue> played, bool sounded) const;
  void registerPermissions();
  void registerShootInfo();
  void registerRevise();
  void registerFetch();
  void registerPublish();
  asio::awaitable<OperatorResult> answerThrough(Branch branch, const OperatorCommand& c, const OperatorArgs& a);

  // One function per group of the manifest; each is a branch over its verbs and
  // answers nothing for a verb that is not its own.
  Answer statusVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer navVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer libraryVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer productionVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer agentVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer versionsVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer editVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer blockingVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer chromeVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer timelineVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer transportVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer appVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer playbackVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer musicVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer waveformVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer castVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer lineEditVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer exportVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer runVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer systemReadoutVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer permissionsVerbs(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> permissionsOpen(const OperatorArgs& a);
  JSONValue permissionsReport();
  JSONValue shootInfoReport();
  JSONValue runStatusReport();
  Answer recordVerbs(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> record(const OperatorArgs& a);
  asio::awaitable<CameraVerdict> checkCamera();
  JSONValue recordStatusReport();
  Answer takeVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer pictureVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer laneVerbs(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> importVerb(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> replaceVerb(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> revealVerb(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> zoomListVerb(const OperatorCommand& c, const OperatorArgs& a);
  // Starts a model act that lands later and waits for it; its failure is thrown here,
  // and a refusal before anything starts throws at once.
  using Start = std::function<void(std::function<void(std::exception_ptr)>)>;
  static asio::awaitable<void> landed(const Start& start);
  Answer renderVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer variantVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer castingVerbs(const OperatorCommand& c, const OperatorArgs& a);
  // Asks every engine again and answers once they have all replied.
  asio::awaitable<OperatorResult> voiceCheck();
  // Copy and decode off the main actor, then act on the model.
  asio::awaitable<OperatorResult> musicAdd(const OperatorArgs& a);
  asio::awaitable<OperatorResult> peaks(const OperatorArgs& a);

  Answer reviseVerbs(const OperatorCommand& c, const OperatorArgs& a);
  Answer fetchVerbs(const OperatorCommand& c, const OperatorArgs& a);
  // music.fetch and the fetch sheet's button alike: yt-dlp into music/, a bed where asked.
  void startFetch(const std::string& url, std::optional<double> start, std::optional<double> end,
                  std::optional<double> at);
  Answer publishVerbs(const OperatorCommand& c, const OperatorArgs& a);
  asio::awaitable<OperatorResult> youtubeConnect(const OperatorArgs& a);
  OperatorResult startPublish(const PublishRequest& request);
  // The sign-in, from the browser's return to the channel's name; runs on its own.
  asio::awaitable<void> signIn(bool consent);
  JSONValue reviseReport() const;
  JSONValue fetchReport() const;
  JSONValue youtubeReport() const;

  // Shared report pieces.
  JSONValue productionReport() const;
  JSONValue toastsReport() const;
  JSONValue pagesReport() const;
  JSONValue flowReport() const;
  JSONValue versionsReport() const;
  JSONValue diagnosticsReport() const;
  JSONValue transportReport() const;
  JSONValue voiceReport() const;
  JSONValue localServerReport() const;
  JSONValue voiceGroupsReport() const;
  JSONValue exportStatusReport() const;
  JSONValue takeReport(const Take& take) const;
  JSONValue takesReport() const;
  JSONValue viewerReport() const;
  JSONValue segmentsReport() const;
  JSONValue zoomReport(const Zoom& zoom) const;
  JSONValue timelineInfo() const;
  JSONValue renderStatusReport() const;
  JSONValue castingReport() const;

  AppModel& model() const;

  AppStore& store_;
  std::function<void()> terminate_;
  WindowSurface* window_ = nullptr;
  asio::awaitable<OperatorResult> snapshot(const OperatorCommand& c, const OperatorArgs& a);
  std::map<std::string, Handler, std::less<>> handlers_;
  std::unique_ptr<Stage> stage_;
  // The probe outlives the ritual that asks it.
  std::unique_ptr<PermissionsProbe> probe_;
  std::unique_ptr<PermissionsRitual> ritual_;
  std::unique_ptr<Outside> outside_;
};

// Report helpers shared by the group files.
namespace Reports {
// A time in a report, rounded to hundredths.
JSONValue seconds(std::optional<double> t);
// The end of the last placed item.
double length(const Recording& rec);
// One item as the timeline draws it: id, type, start, length, and what its type carries.
JSONValue item(const Recording& rec, const TimelineItem& item);
JSONValue text(const std::optional<std::string>& s);
}  // namespace Reports

}  // namespace tavorin
