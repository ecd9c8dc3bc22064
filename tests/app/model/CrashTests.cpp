// Kills a studio process at random moments while it edits, drafts and saves, and
// checks that the production always opens again with nothing saved lost and the
// last draft restored.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <sstream>
#include <thread>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

Recording sample() {
  Recording r("crash", "Crash test");
  for (int i = 1; i <= 40; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = "A line of narration long enough to make the file a few kilobytes, number " + std::to_string(i) + ".";
    line.start = i * 3.0;
    line.hold = 2.5;
    r.timeline.push_back(line);
  }
  return r;
}

// The child: reopens the production and edits, drafts and saves until it is killed,
// telling the parent on `report` what each finished act left on disk.
[[noreturn]] void work(const fs::path& dir, const fs::path& support, int report, int round) {
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model(actor, SessionStore(support / "session.json"), pasteboard);
  model.open(dir);
  auto say = [&](const std::string& line) {
    const std::string l = line + "\n";
    if (::write(report, l.data(), l.size()) < 0) _exit(3);
  };
  for (int i = 0;; ++i) {
    const std::string text = "round " + std::to_string(round) + " edit " + std::to_string(i);
    model.editItem("l1", "text", text);
    actor.advance(900ms);  // the draft follows the edit
    say("draft " + text);
    if (i % 3 == 2) {
      model.save();
      say("save " + *model.headVersion() + " " + text);
    }
  }
}

struct Reported {
  std::vector<std::pair<std::string, std::string>> saves;  // version, text
  std::optional<std::string> lastText;                       // of the last finished act
};

Reported parse(const std::string& log) {
  Reported r;
  std::istringstream in(log);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("draft ", 0) == 0) r.lastText = line.substr(6);
    else if (line.rfind("save ", 0) == 0) {
      const auto space = line.find(' ', 5);
      r.saves.emplace_back(line.substr(5, space - 5), line.substr(space + 1));
      r.lastText = line.substr(space + 1);
    }
  }
  return r;
}

// "round R edit I" orders acts across rounds.
std::pair<int, int> order(const std::string& text) {
  int r = -1, i = -1;
  std::sscanf(text.c_str(), "round %d edit %d", &r, &i);
  return {r, i};
}

}  // namespace

TEST(Crash, AProductionAlwaysOpensAgainAfterSigkill) {
  test::TempDir tmp;
  const fs::path dir = tmp / "crash";
  RecordingStore(dir).saveNewVersion(sample(), std::chrono::system_clock::now());
  std::mt19937 random(20261123);
  std::uniform_int_distribution<int> delay(0, 40);
  std::vector<std::pair<std::string, std::string>> allSaves;
  std::optional<std::string> lastText;

  for (int round = 0; round < 24; ++round) {
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(pipeFds[0]);
      work(dir, tmp / "support", pipeFds[1], round);
    }
    ::close(pipeFds[1]);
    // The kill is timed from the worker's first finished act, not from its start,
    // so a slow start (a sanitizer build, a loaded machine) still leaves it working.
    std::string log;
    char buf[4096];
    // What the worker wrote next, waiting up to 20 s for it; false once it has nothing more.
    const auto readMore = [&] {
      pollfd ready{pipeFds[0], POLLIN, 0};
      if (::poll(&ready, 1, 20000) <= 0) return false;
      const ssize_t n = ::read(pipeFds[0], buf, sizeof buf);
      if (n > 0) log.append(buf, std::size_t(n));
      return n > 0;
    };
    readMore();
    // Every fourth round waits for a finished save first: each draft and save is synced
    // to disk, and on a loaded disk three syncs can outlast every random delay.
    if (round % 4 == 3)
      while (log.find("save ") == std::string::npos && readMore()) {
      }
    std::this_thread::sleep_for(std::chrono::milliseconds(delay(random)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    for (ssize_t n; (n = ::read(pipeFds[0], buf, sizeof buf)) > 0;) log.append(buf, n);
    ::close(pipeFds[0]);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the worker ended by itself in round " << round;

    const Reported reported = parse(log);
    allSaves.insert(allSaves.end(), reported.saves.begin(), reported.saves.end());
    if (reported.lastText) lastText = reported.lastText;

    // It opens again.
    ManualMainActor actor;
    MemoryPasteboard pasteboard;
    AppModel model(actor, SessionStore(tmp / "support/session.json"), pasteboard);
    try {
      model.open(dir);
    } catch (const std::exception& e) {
      FAIL() << "round " << round << ": " << e.what();
    }
    EXPECT_FALSE(model.loadError()) << model.loadError().value_or("");

    // Nothing that was saved is lost.
    const RecordingStore store(dir);
    for (const auto& [version, text] : allSaves) {
      ASSERT_NO_THROW(store.load(version)) << version;
      EXPECT_EQ(*store.load(version).item("l1")->text, text) << version;
    }

    // The last finished act is what opens: the draft restored over the head, or
    // something the worker finished after its last report.
    if (lastText) {
      const std::string opened = *model.recording().item("l1")->text;
      EXPECT_GE(order(opened), order(*lastText)) << "round " << round << ": opened '" << opened << "'";
    }
  }
  EXPECT_GT(allSaves.size(), 0u);
}
