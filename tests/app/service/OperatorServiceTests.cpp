#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/redirect_error.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/use_future.hpp>

#include "ServiceRig.hpp"
#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/shoot/Stage.hpp"
#include "app/shoot/FakeRecorder.hpp"
#include "app/shoot/FakePerformer.hpp"
#include "app/shoot/FakeAgentStep.hpp"
#include "app/model/Scope.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "operator/OperatorManifest.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "platform/Wav.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace tavorin {
// Readable failures: a JSON value prints as its text.
void PrintTo(const JSONValue& v, std::ostream* os) { *os << v.encode(); }
}  // namespace tavorin

namespace {

class OperatorServiceTest : public test::ServiceRig {
 protected:
  // A project with one production of three lines two seconds apart, saved.
  void openSample() {
    ServiceRig::openSample(3, 2.0, 1.5);
    data("save");
  }
};

}  // namespace

TEST_F(OperatorServiceTest, EveryVerbOfTheManifestAnswersWithoutAProduction) {
  EXPECT_EQ(OperatorService::handledVerbs(), OperatorManifest::verbNames());
  for (const VerbSpec& row : OperatorManifest::verbs()) {
    if (row.name == "quit") continue;  // it would end the walk
    OperatorResult r;
    ASSERT_NO_THROW(r = call(row.name)) << row.name;
    const std::string error = r.error.value_or("");
    EXPECT_EQ(error.find("unhandled verb"), std::string::npos) << row.name << ": " << error;
    // A refusal is a sentence of ours, never a library's text.
    if (!r.ok) {
      EXPECT_FALSE(error.empty()) << row.name;
      EXPECT_EQ(error.find("exception"), std::string::npos) << row.name << ": " << error;
    }
  }
}

// Every row of the manifest is answered by exactly one handler; a former spelling
// answers through its verb.
TEST_F(OperatorServiceTest, EveryRowHasItsHandler) {
  std::set<std::string> rows;
  for (const VerbSpec& row : OperatorManifest::verbs()) {
    rows.insert(row.name);
    const bool handled = service.hasHandler(row.name);
    if (row.aliasOf) {
      EXPECT_FALSE(handled) << row.name << " is a former spelling and needs no registration";
      EXPECT_TRUE(service.hasHandler(*row.aliasOf)) << row.name;
    } else {
      EXPECT_TRUE(handled) << row.name << " has no handler";
    }
  }
  // Nothing is registered that the manifest does not list.
  for (const auto& verb : service.registeredVerbs()) EXPECT_TRUE(rows.count(verb)) << verb;

  // Each handler has a case for its verb: with its required arguments given it gets
  // past them and answers, refused or not, but never as unhandled.
  openSample();
  for (const VerbSpec& row : OperatorManifest::verbs()) {
    if (row.name == "quit" || !service.hasHandler(row.name)) continue;
    std::map<std::string, std::string> args;
    for (const auto& p : row.params)
      if (p.required) args[p.name] = "1";
    const OperatorResult r = call(row.name, args);
    EXPECT_EQ(r.error.value_or("").find("unhandled verb"), std::string::npos) << row.name;
    if (row.needs) {
      EXPECT_NE(r.error, row.needs) << row.name;
    }
  }
}

// A verb that waits holds up nothing else: the next request is answered while it
// waits, and a verb that was waiting for its part of the studio answers once that
// part registers it.
TEST_F(OperatorServiceTest, AVerbThatWaitsLetsTheOthersAnswer) {
  // The camera check runs off the actor: it waits until the actor's work is done.
  service.useStage(std::make_unique<Stage>(actor, std::make_unique<FakePerformer>(),
                                           std::make_unique<FakeAgentStep>(actor), &actor,
                                           std::make_unique<FakeRecorder>(), &actor));
  EXPECT_THROW(service.on("camera", {}), std::logic_error);  // one handler a verb

  asio::io_context context;
  std::vector<std::string> answered;
  auto ask = [&](std::string verb) {
    asio::co_spawn(context, service.handle(OperatorCommand{verb, {}}),
                   [&answered, verb](std::exception_ptr, OperatorResult r) {
                     answered.push_back(verb + (r.ok ? " ok" : " " + r.error.value_or("")));
                   });
  };
  ask("camera");
  ask("ping");
  // Everything that can run while the camera check waits.
  while (context.poll() > 0) {
  }
  ASSERT_EQ(answered, std::vector<std::string>{"ping ok"});
  actor.drain();
  context.restart();
  context.run();
  EXPECT_EQ(answered, (std::vector<std::string>{"ping ok", "camera ok"}));
}

TEST_F(OperatorServiceTest, AFormerSpellingAnswersAsItsVerb) {
  EXPECT_EQ(data("modes"), data("pages"));
  openSample();
  data("render.flow");
  EXPECT_TRUE(store.showingExportSheet);
  EXPECT_EQ(data("takes"), data("take.list"));
}

TEST_F(OperatorServiceTest, AVerbMarkedAsReportingChangesNothing) {
  openSample();
  data("nav", {{"route", "edit"}});
  const auto state = [&] {
    JSONValue s = service.status();
    s.set("events", static_cast<long long>(model.events().size()));
    s.set("slate", store.showingSlate);
    return s.encode();
  };
  for (const VerbSpec& row : OperatorManifest::verbs()) {
    if (row.mutating) continue;
    const std::string before = state();
    call(row.name);
    EXPECT_EQ(state(), before) << row.name << " is marked as reporting only, but changed the studio";
  }
}

TEST_F(OperatorServiceTest, UnknownVerbsNameTheSpellingSent) {
  EXPECT_TRUE(call("ping").ok);
  EXPECT_EQ(error("PING"), "unknown verb 'PING'. Try: tavorinctl verbs");
  EXPECT_EQ(error("lines.Merge"), "unknown verb 'lines.Merge'. Try: tavorinctl verbs");
}

TEST_F(OperatorServiceTest, MissingArgumentsAreRefusedInTheirOwnWords) {
  const std::map<std::string, std::string> refusals{
      {"project.create", "project.create needs name=<display name>"},
      {"project.open", "project.open needs name=<slug or name>"},
      {"project.trash", "project.trash needs name=<project>. Try: tavorinctl project.list"},
      {"recording.open", "recording.open needs slug=<slug>"},
      {"recording.duplicate", "recording.duplicate needs slug=<slug>"},
      {"recording.trash", "recording.trash needs slug=<slug>"},
      {"recording.restore", "recording.restore needs entry=<trash entry>"},
      {"recording.new",
       "recording.new needs prompt=<what the production should be> [title=], or title= alone for a blank recording"},
      {"version.open", "version.open needs name=<short or full version name>"},
      {"version.head", "version.head needs name=<short or full version name>"},
      {"nav", "nav needs route=<script|edit|library[:project]|shoot|render>"},
      {"open", "open needs dir=<path>"},
      {"drop", "drop needs path=<file or folder>"},
      {"hover", "hover needs id=<item id>"},
      {"label.add", "label.add needs at=<seconds> [text=…]"},
      {"label.rename", "label.rename needs id=<label> text=<new text>"},
  };
  openSample();  // so that nothing is refused for want of a production first
  for (const auto& [verb, words] : refusals) EXPECT_EQ(error(verb), words) << verb;
  // An empty value is a missing one, and one missing argument of two is enough.
  EXPECT_EQ(error("label.rename", {{"id", "g1"}, {"text", ""}}), "label.rename needs id=<label> text=<new text>");
  EXPECT_EQ(error("cue.move", {{"id", "1"}}), "cue.move needs id=<cue ordinal> to=<seconds>");
  EXPECT_EQ(error("edit", {{"id", "l1"}, {"value", "x"}}), "edit needs id=<item id or production> field=<name> [value=]");
  EXPECT_EQ(error("blocking.set", {{"text", ""}}), "blocking.set needs text=<the whole script>");
  EXPECT_EQ(error("jog"), "jog needs to=prev|next|start|end");
  // The refusal comes before the act: nothing moved.
  EXPECT_EQ(error("item.move", {{"to", "9"}}), "item.move needs id=<item> to=<seconds>");
  EXPECT_EQ(*model.recording().item("l1")->start, 2.0);
  // A former spelling is refused in its verb's words; an unknown argument changes nothing.
  EXPECT_EQ(error("nav", {{"path", "edit"}}), "nav needs route=<script|edit|library[:project]|shoot|render>");
}

TEST_F(OperatorServiceTest, NumbersAreReadFromTheWholeText) {
  openSample();
  EXPECT_EQ(error("label.add", {{"at", "abc"}}), "'abc' is not a number for at");
  EXPECT_EQ(error("label.add", {{"at", " 2"}}), "' 2' is not a number for at");
  const JSONValue label = data("label.add", {{"at", "2.5"}, {"text", "Chapter two"}});
  EXPECT_EQ(*label["id"], JSONValue("g1"));
  EXPECT_EQ(*label["start"], JSONValue(2.5));
}

TEST_F(OperatorServiceTest, IdListsDropEmptyPieces) {
  openSample();
  data("delete", {{"ids", " l1 , ,l3"}});
  EXPECT_FALSE(model.recording().item("l1"));
  EXPECT_TRUE(model.recording().item("l2"));
  EXPECT_FALSE(model.recording().item("l3"));
  EXPECT_EQ(*data("undo")["ids"], JSONValue::array({"l1", "l3"}));
  EXPECT_EQ(*data("select", {{"ids", "l3, l1"}})["selection"], JSONValue::array({"l3", "l1"}));
}

TEST_F(OperatorServiceTest, EditingRefusesWithoutAProductionAndWhileViewingAnOlderVersion) {
  EXPECT_EQ(error("edit", {{"id", "l1"}, {"field", "text"}, {"value", "x"}}), "no production is open");
  EXPECT_EQ(error("save"), "no production is open");
  EXPECT_EQ(error("nav", {{"route", "script"}}), "nothing to edit — open a production first");
  openSample();
  data("edit", {{"id", "l1"}, {"field", "text"}, {"value", "Changed."}});
  data("save");
  data("version.open", {{"name", "v0001"}});
  const std::string readOnly = "viewing an older version — set it as head to edit";
  EXPECT_EQ(error("edit", {{"id", "l1"}, {"field", "text"}, {"value", "x"}}), readOnly);
  EXPECT_EQ(error("save"), readOnly);
  EXPECT_EQ(error("paste", {{"text", R"({"id":"g9","type":"label"})"}}), readOnly);
  EXPECT_EQ(error("delete", {{"ids", "l1"}}), readOnly);
  EXPECT_EQ(error("label.add", {{"at", "1"}}), readOnly);
  EXPECT_EQ(error("undo"), readOnly);
  // Reports and leaving the old version still work.
  EXPECT_TRUE(call("versions").ok);
  EXPECT_TRUE(call("diff").ok);
  data("version.head", {{"name", "v0001"}});
  // v0001 is the blank recording, before the lines were written.
  const auto again = call("edit", {{"id", "production"}, {"field", "title"}, {"value", "Editable again"}});
  EXPECT_TRUE(again.ok) << again.error.value_or("");
}

TEST_F(OperatorServiceTest, TheDraftReportIsWhatIsOnDisk) {
  openSample();
  data("edit", {{"id", "l1"}, {"field", "text"}, {"value", "Changed."}});
  const JSONValue draft = data("draft");  // written now, not 0.8 s from now
  EXPECT_EQ(*draft["draft"], JSONValue(true));
  EXPECT_EQ(*draft["conflict"], JSONValue(false));
  data("save");
  EXPECT_EQ(*data("draft")["draft"], JSONValue(false));
  EXPECT_EQ(error("diff", {{"from", "v0001"}, {"to", "v0099"}}).rfind("The system found no version named 'v0099'.", 0), 0u);
}

TEST_F(OperatorServiceTest, FlowsOverThePage) {
  EXPECT_EQ(error("flow.end"), "nothing is open over the page");
  openSample();
  EXPECT_EQ(*data("export.youtube")["exportSheetArmed"], JSONValue(false));  // no footage to send
  EXPECT_TRUE(call("flow.end").ok);
  EXPECT_EQ(*data("palette")["palette"], JSONValue(true));
  EXPECT_EQ(*data("palette", {{"open", "0"}})["palette"], JSONValue(false));
}

TEST_F(OperatorServiceTest, ToastsAreListedAndDismissed) {
  model.toasts().post(Toast::Kind::voice, "rendered l1");
  const auto failure = model.toasts().post(Toast::Kind::failure, "the engine is down");
  const JSONValue report = data("toasts");
  EXPECT_EQ(*report["count"], JSONValue(2));
  const auto& first = (*report["toasts"]->arrayValue())[0];
  EXPECT_EQ(*first["holds"], JSONValue(true));
  EXPECT_EQ(*first["secondsLeft"], JSONValue(0.0));
  EXPECT_EQ(error("toasts", {{"dismiss", "t99"}}), "no toast 't99' is up. Try: tavorinctl toasts");
  EXPECT_EQ(*data("toasts", {{"dismiss", failure}})["count"], JSONValue(1));
  EXPECT_EQ(*data("toasts", {{"dismiss", "all"}})["count"], JSONValue(0));
}

TEST_F(OperatorServiceTest, OriginAndItsAbsence) {
  openSample();
  EXPECT_EQ(error("origin"), "this production predates provenance — there is no record of what asked for it");
  const JSONValue made = data("recording.new", {{"prompt", "A tour of the settings page"}});
  EXPECT_NE(made["handoff"]->stringValue()->find("The request was:\nA tour of the settings page"), std::string::npos);
  EXPECT_EQ(*data("origin")["prompt"], JSONValue("A tour of the settings page"));
}

TEST_F(OperatorServiceTest, QuitAnswersAndAsksToTerminate) {
  EXPECT_TRUE(call("quit").ok);
  EXPECT_EQ(quits, 1);
  EXPECT_EQ(model.events().back(), "quit requested by the operator");
}

TEST_F(OperatorServiceTest, LibraryRouteWithNoProjectLandsOnTheLibrary) {
  openSample();
  data("nav", {{"route", "edit"}});
  EXPECT_EQ(data("nav", {{"route", "library:"}})["route"]->encode(), "\"library\"");
}

TEST_F(OperatorServiceTest, AProjectOpensByItsSlugOrItsName) {
  data("project.create", {{"name", "Spring Films"}});
  const std::string slug = store.currentProject()->name();
  data("project.open", {{"name", slug}});
  data("project.open", {{"name", "Spring Films"}});
  EXPECT_EQ(store.currentProject()->name(), slug);
  EXPECT_EQ(error("project.open", {{"name", "Autumn"}}).find("Autumn") != std::string::npos, true);
}

TEST_F(OperatorServiceTest, DiffSaysWhenTheScriptsTheVersionsNameDiffer) {
  openSample();
  EXPECT_EQ(data("diff")["blockingChanged"]->encode(), "false");
  // The next version names a script of its own.
  Recording rec = model.recording();
  rec.blocking = "alternate.stage";
  std::ofstream(*model.baseDir() / "alternate.stage") << "wait 1\n";
  model.setRecording(rec);
  actor.drain();
  data("save");
  const JSONValue diff = data("diff");
  EXPECT_EQ(diff["blockingChanged"]->encode(), "true");
  EXPECT_NE(diff["summary"]->stringValue()->find("blocking changed"), std::string::npos) << diff.encode();
}

TEST_F(OperatorServiceTest, AFieldIsReadAsTheKindTheModelTakes) {
  openSample();
  EXPECT_EQ(error("edit", {{"id", "l1"}, {"field", "rate"}, {"value", "fast"}}), "'fast' is not a number for rate");
  EXPECT_EQ(error("edit", {{"id", "l1"}, {"field", "approved"}, {"value", "maybe"}}).rfind("'maybe' is not", 0), 0u);
  data("edit", {{"id", "l1"}, {"field", "approved"}, {"value", "yes"}});
  data("edit", {{"id", "l1"}, {"field", "rate"}, {"value", "1.5"}});
  EXPECT_TRUE(*model.recording().item("l1")->approved);
  EXPECT_EQ(*model.recording().item("l1")->rate, 1.5);
}

TEST_F(OperatorServiceTest, ABedIsCopiedAndMeasuredOffTheActorBeforeItIsLaid) {
  openSample();
  test::TempDir elsewhere;
  test::writeLevel(elsewhere / "theme.wav", 3, 0.5f, 22050);

  asio::io_context context;
  auto future = asio::co_spawn(
      context, service.handle(OperatorCommand{"music.add", {{"file", (elsewhere / "theme.wav").string()}, {"at", "1"}}}),
      asio::use_future);
  context.poll();
  // Until the actor runs the offloaded copy, nothing is on the lane and nothing was copied.
  EXPECT_NE(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_FALSE(model.recording().item("m1"));
  EXPECT_FALSE(std::filesystem::exists(*model.baseDir() / "music/theme.wav"));
  actor.drain();
  context.restart();
  context.poll();
  const OperatorResult added = future.get();
  ASSERT_TRUE(added.ok) << added.error.value_or("");
  EXPECT_EQ(*(*added.data)["id"]->stringValue(), "m1");
  EXPECT_TRUE(std::filesystem::exists(*model.baseDir() / "music/theme.wav"));

  const JSONValue peaks = data("peaks", {{"id", "m1"}});
  ASSERT_EQ(peaks["peaks"]->arrayValue()->size(), 200u);
  EXPECT_NEAR(*(*peaks["peaks"]->arrayValue())[100].doubleValue(), 0.5, 0.01);
  // A file that will not decode is the decoder's sentence, reached through the wait.
  std::ofstream(*model.baseDir() / "music/theme.wav", std::ios::trunc) << "not audio";
  EXPECT_NE(error("peaks", {{"id", "m1"}}), "");
  EXPECT_EQ(error("music.add", {{"file", (elsewhere / "missing.wav").string()}}).empty(), false);
}

TEST_F(OperatorServiceTest, SoundShowsTheSetMutesItAndPlaysACueOnRequest) {
  std::vector<SoundCue> heard;
  model.holdSounds(false);
  model.cuePlayer = [&](SoundCue cue) { heard.push_back(cue); };
  const JSONValue set = data("sound");
  const auto* cues = set["cues"]->arrayValue();
  ASSERT_EQ(cues->size(), 5u);
  const JSONValue& rolling = (*cues)[2];
  EXPECT_EQ(rolling["number"]->intValue(), 3);  // the shoot's cue 3 is the roll
  EXPECT_EQ(rolling["name"]->stringValue(), "rolling");
  EXPECT_EQ(rolling["timing"]->stringValue(), "1 note of 120 ms");
  EXPECT_EQ((*cues)[0]["timing"]->stringValue(), "3 notes of 90 ms, 30 ms apart");
  EXPECT_EQ((*cues)[0]["direction"]->stringValue(), "rising");
  EXPECT_EQ(set["muted"]->boolValue(), false);

  EXPECT_EQ(data("sound", {{"play", "cut"}})["sounded"]->boolValue(), true);
  EXPECT_EQ(heard, std::vector<SoundCue>{SoundCue::cut});

  data("sound", {{"muted", "1"}});
  const JSONValue muted = data("sound", {{"play", "done"}});
  EXPECT_EQ(muted["muted"]->boolValue(), true);
  EXPECT_EQ(muted["sounded"]->boolValue(), false);
  EXPECT_EQ(muted["silentBecause"]->stringValue(), "the cues are muted");
  EXPECT_EQ(heard.size(), 1u);
  EXPECT_EQ(error("sound", {{"play", "bell"}}),
            "no sound cue named \"bell\": done, failed, exported, rolling or cut");
  EXPECT_EQ(error("sound", {{"muted", "maybe"}}).empty(), false);
}

TEST_F(OperatorServiceTest, LinesReportsEachLinesPlaceVoiceAndState) {
  EXPECT_EQ(error("lines"), "no production is open");
  openSample();
  const JSONValue report = data("lines");
  const auto* lines = report["lines"]->arrayValue();
  ASSERT_EQ(lines->size(), 3u);
  const JSONValue& l2 = (*lines)[1];
  EXPECT_EQ(l2["id"]->stringValue(), "l2");
  EXPECT_EQ(l2["text"]->stringValue(), "Line 2.");
  EXPECT_EQ(l2["start"]->doubleValue(), 4.0);
  EXPECT_TRUE(l2["duration"]->isNull());
  EXPECT_EQ(l2["effective"]->doubleValue(), 1.5);  // a hold stands in for audio
  EXPECT_EQ(l2["rate"]->doubleValue(), 1.0);
  EXPECT_EQ(l2["rendered"]->boolValue(), false);
  EXPECT_EQ(l2["samples"]->intValue(), 0);
  EXPECT_EQ(l2["pastEnd"]->boolValue(), false);  // no take, no end to pass
  EXPECT_TRUE(l2["generation"]->isNull());
  EXPECT_TRUE(l2["contiguous"]->isNull());
  EXPECT_EQ(l2["stale"]->boolValue(), false);
  EXPECT_EQ(l2["approveMark"]->stringValue(), "");

  data("line.approve", {{"id", "l2"}});
  const JSONValue approved = (*data("lines")["lines"]->arrayValue())[1];
  EXPECT_EQ(approved["approved"]->boolValue(), true);
  EXPECT_EQ(approved["approveMark"]->stringValue(), "✓");
  EXPECT_EQ(approved["drifted"]->boolValue(), false);
}

TEST_F(OperatorServiceTest, TheFetchSheetTakesATypedSliceAndClosesWhenItsBedLands) {
  EXPECT_EQ(error("music.fetch.open"), test::refusal([] { throw AppModel::Failure::noProduction(); }));
  // A yt-dlp that writes down the slice it was asked for and makes three seconds of it.
  test::ScopedEnv home("HOME", (tmp / "home").string());
  const fs::path asked = tmp / "asked";
  test::writeFile(tmp / "home/.local/bin/yt-dlp",
                  "#!/bin/sh\nout=''\n"
                  "while [ $# -gt 0 ]; do case \"$1\" in -o) out=\"$2\"; shift 2;;"
                  " --download-sections) printf '%s' \"$2\" > '" + asked.string() + "'; shift 2;; *) shift;; esac; done\n"
                  "exec ffmpeg -v error -y -f lavfi -i sine=frequency=330:duration=3 -c:a libmp3lame \"${out%.%(ext)s}.mp3\"\n");
  fs::permissions(tmp / "home/.local/bin/yt-dlp", fs::perms::owner_all);
  openSample();

  EXPECT_EQ(*data("music.fetch.open")["open"], JSONValue(true));
  EXPECT_EQ(*data("status")["fetchSheet"], JSONValue(true));
  EXPECT_EQ(model.events().back(), "fetch sheet up");
  EXPECT_TRUE(call("flow.end").ok);  // Escape puts it away like any sheet
  EXPECT_EQ(*data("music.fetch.status")["open"], JSONValue(false));
  EXPECT_EQ(model.events().back(), "fetch sheet dismissed");

  data("music.fetch.open");
  EXPECT_EQ(test::refusal([&] { store.fetchFromSheet(); }), "type the URL of the audio to fetch");
  store.fetchAsk = {"  https://www.youtube.com/watch?v=x ", 1, 4};
  model.setPlayhead(2);
  store.fetchFromSheet();
  JSONValue status = data("music.fetch.status");
  EXPECT_EQ(*status["url"], JSONValue("https://www.youtube.com/watch?v=x"));
  // yt-dlp is a real child here: its end is waited for, each poll draining the actor.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (*status["phase"] == JSONValue("fetching") && std::chrono::steady_clock::now() < limit) {
    std::this_thread::yield();
    status = data("music.fetch.status");
  }
  ASSERT_EQ(*status["phase"], JSONValue("done")) << status.encode();
  EXPECT_EQ(test::readFile(asked), "*0:00:01-0:00:04");
  EXPECT_EQ(*status["open"], JSONValue(false));
  const auto& timeline = model.recording().timeline;
  const auto bed = std::find_if(timeline.begin(), timeline.end(), [](const auto& item) { return item.id == "m1"; });
  ASSERT_NE(bed, timeline.end());
  EXPECT_EQ(bed->start, 2);
}
