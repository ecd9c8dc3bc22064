// Verbs of the manifest whose part of the studio has not landed in this build. They
// answer "unhandled verb '<verb>'" until their group registers handlers; a verb
// moves from here to its group's register function when it does.
#include "app/service/OperatorService.hpp"

namespace tavorin {

void OperatorService::registerWaiting() {
  waiting("line editing", {"lines", "lines.glue", "line.split", "lines.merge", "lines.together", "lines.alone"});
  waiting("the runner", {"run", "run.plan", "run.status", "run.abort", "agent.policy", "agent.command"});
  waiting("recording", {"record", "camera", "record.stop", "record.status", "take.list", "take.select", "import",
                        "viewer.info", "shoot.info", "take.remove", "take.replace", "take.reveal", "take.dismiss",
                        "capture", "viewer.caption"});
  waiting("the system readouts", {"keys", "systems", "permissions", "permissions.open", "permissions.show",
                                  "permissions.dismiss", "fonts"});
  waiting("revision", {"revise", "revise.status"});
  waiting("music", {"music.add", "music.trim", "music.gain", "music.fetch", "music.fetch.status", "music.fetch.open",
                    "music.edit", "music.preview", "music.remove", "music.list"});
  waiting("export", {"export", "subtitles", "look", "look.presets", "subtitles.fonts", "export.take", "export.format",
                     "export.size", "export.quality", "export.rate", "export.destination", "export.status",
                     "export.cancel", "exports", "publish.youtube", "youtube", "youtube.connect",
                     "youtube.disconnect", "youtube.privacy", "publish.status"});
  waiting("voices and casting", {"voice", "voice.check", "voice.local", "voice.local.set", "voice.groups",
                                 "line.audio", "cast", "cast.audition", "casting", "casting.dismiss", "casting.cast",
                                 "casting.audition", "casting.history", "casting.use", "voice.preview", "cast.use",
                                 "sound"});
  waiting("the render queue", {"render", "render.status", "render.samples", "render.cancel"});
  waiting("the timeline", {"timeline.info", "timeline.items", "peaks", "segment.list", "segment.split",
                           "segment.remove", "segment.trim", "segment.set", "segment.rate", "zoom.list", "zoom.add",
                           "zoom.set", "zoom.remove", "lane.hide", "lane.mute", "waveforms", "timeline.zoom"});
  waiting("playback", {"timecode", "play", "pause", "stop", "seek", "transport", "line.play", "line.stop",
                       "line.samples", "line.sample.play", "line.sample.use", "line.sample.remove", "line.approve"});
}

}  // namespace tavorin
