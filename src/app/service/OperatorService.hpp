#pragma once
#include <asio/awaitable.hpp>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "operator/OperatorCommand.hpp"

namespace tavorin {

class AppStore;
class AppModel;
class OperatorArgs;
struct TimelineItem;
struct Recording;

// Turns a verb into an act of the running studio. It holds no logic of its own
// beyond reading arguments, refusing bad ones in set words and shaping reports:
// each verb calls the same operation on the store or the model that a control in
// the window calls, so a control and its verb cannot drift apart.
class OperatorService {
 public:
  // `quit` asks the application to terminate through this hook.
  OperatorService(AppStore& store, std::function<void()> terminate);

  // Never throws: every refusal is an answer with `ok` false.
  asio::awaitable<OperatorResult> handle(OperatorCommand command);

  // The names the dispatcher answers for: every row of the manifest.
  static const std::set<std::string>& handledVerbs();

  // Reports, shaped for the wire.
  JSONValue status() const;
  JSONValue buildReport() const;

 private:
  using Answer = std::optional<OperatorResult>;

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
  // Asks every engine again and answers once they have all replied.
  asio::awaitable<OperatorResult> voiceCheck();

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

  AppModel& model() const;

  AppStore& store_;
  std::function<void()> terminate_;
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
