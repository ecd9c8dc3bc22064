// Verbs of the manifest whose part of the studio has not landed in this build. They
// answer "unhandled verb '<verb>'" until their group registers handlers; a verb
// moves from here to its group's register function when it does.
#include "app/service/OperatorService.hpp"

namespace tavorin {

void OperatorService::registerWaiting() {
  waiting("line editing", {"lines"});
  waiting("the runner", {"run", "run.plan", "run.status", "run.abort", "agent.policy", "agent.command"});
  waiting("recording", {"record", "camera", "record.stop", "record.status", "take.list", "take.select", "import",
                        "viewer.info", "shoot.info", "take.remove", "take.replace", "take.reveal", "take.dismiss",
                        "capture", "viewer.caption"});
  waiting("the system readouts", {"keys", "systems", "permissions", "permissions.open", "permissions.show",
                                  "permissions.dismiss"});
  waiting("revision", {"revise", "revise.status"});
  waiting("music fetching", {"music.fetch", "music.fetch.status", "music.fetch.open"});
  waiting("export", {"export", "subtitles", "look", "look.presets", "export.take", "export.format",
                     "export.size", "export.quality", "export.rate", "export.destination", "export.status",
                     "export.cancel", "exports", "publish.youtube", "youtube", "youtube.connect",
                     "youtube.disconnect", "youtube.privacy", "publish.status"});
  waiting("the sound cues", {"sound"});
  waiting("the timeline", {"timeline.info", "timeline.items", "segment.list", "segment.split",
                           "segment.remove", "segment.trim", "segment.set", "segment.rate", "zoom.list", "zoom.add",
                           "zoom.set", "zoom.remove", "lane.hide", "lane.mute", "waveforms", "timeline.zoom"});
}

}  // namespace tavorin
