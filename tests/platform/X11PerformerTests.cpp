// Google Test first: Xlib defines None, which gtest uses as a name.
#include <gtest/gtest.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "TestSupport.hpp"
#include "Processes.hpp"
#include "VirtualDisplay.hpp"
#include "platform/ChromiumBrowser.hpp"
#include "platform/X11Performer.hpp"

using namespace tavorin;
using namespace std::chrono_literals;

namespace {

// A window of the test's own that fills the screen and writes down what reaches it:
// the text typed (as code points, shift and lent keys applied), each key with its
// modifiers, the clicks, the wheel and the pointer.
class Target {
 public:
  struct Key {
    KeySym sym;
    unsigned state;
  };

  explicit Target(const std::string& display, const std::string& name = "tavorin-target") {
    d_ = XOpenDisplay(display.c_str());
    if (!d_) return;
    const int screen = DefaultScreen(d_);
    w_ = XCreateSimpleWindow(d_, RootWindow(d_, screen), 0, 0, DisplayWidth(d_, screen), DisplayHeight(d_, screen),
                             0, 0, 0);
    XClassHint hint{const_cast<char*>(name.c_str()), const_cast<char*>("TavorinTarget")};
    XSetClassHint(d_, w_, &hint);
    XStoreName(d_, w_, "Target window");
    XSelectInput(d_, w_, KeyPressMask | ButtonPressMask | PointerMotionMask | StructureNotifyMask);
    XMapWindow(d_, w_);
    XSync(d_, False);
    for (XEvent e;;) {
      XNextEvent(d_, &e);
      if (e.type == MapNotify) break;
    }
    reader_ = std::thread([this] { read(); });
  }
  ~Target() {
    stop_ = true;
    if (reader_.joinable()) reader_.join();
    if (d_) XCloseDisplay(d_);
  }
  bool ok() const { return d_ != nullptr; }

  std::u32string text() {
    std::lock_guard g(lock_);
    return text_;
  }
  std::vector<Key> keys() {
    std::lock_guard g(lock_);
    return keys_;
  }
  std::vector<std::tuple<unsigned, int, int>> buttons() {
    std::lock_guard g(lock_);
    return buttons_;
  }
  std::pair<int, int> pointer() {
    std::lock_guard g(lock_);
    return pointer_;
  }
  int motions() {
    std::lock_guard g(lock_);
    return motions_;
  }
  // Waits until `done` holds, or ten seconds: a loaded machine may be slow to read.
  template <class F>
  bool waitFor(F done) {
    const auto until = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < until) {
      if (done()) return true;
      std::this_thread::sleep_for(5ms);
    }
    return done();
  }

 private:
  void read() {
    while (!stop_) {
      while (XPending(d_)) {
        XEvent e;
        XNextEvent(d_, &e);
        std::lock_guard g(lock_);
        if (e.type == MappingNotify) {
          XRefreshKeyboardMapping(&e.xmapping);
        } else if (e.type == KeyPress) {
          char buffer[16];
          KeySym sym = NoSymbol;
          XLookupString(&e.xkey, buffer, sizeof buffer, &sym, nullptr);
          keys_.push_back({sym, e.xkey.state});
          if (sym == XK_Return) text_.push_back(U'\n');
          else if ((sym & 0xff000000) == 0x01000000) text_.push_back(static_cast<char32_t>(sym & 0xffffff));
          else if (sym >= 0x20 && sym <= 0xff) text_.push_back(static_cast<char32_t>(sym));
        } else if (e.type == ButtonPress) {
          buttons_.emplace_back(e.xbutton.button, e.xbutton.x, e.xbutton.y);
        } else if (e.type == MotionNotify) {
          pointer_ = {e.xmotion.x, e.xmotion.y};
          ++motions_;
        }
      }
      std::this_thread::sleep_for(1ms);
    }
  }

  Display* d_ = nullptr;
  Window w_ = 0;
  std::thread reader_;
  std::atomic<bool> stop_{false};
  std::mutex lock_;
  std::u32string text_;
  std::vector<Key> keys_;
  std::vector<std::tuple<unsigned, int, int>> buttons_;
  std::pair<int, int> pointer_{-1, -1};
  int motions_ = 0;
};

std::u32string utf32(const std::string& s) {
  std::u32string out;
  for (std::size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    const int n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
    char32_t cp = n == 1 ? b : b & (0xFF >> (n + 1));
    for (int k = 1; k < n; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    out.push_back(cp);
    i += n;
  }
  return out;
}

struct Desk {
  test::VirtualDisplay display;
  test::TempDir profile;
  std::unique_ptr<X11Performer> performer;
  std::unique_ptr<Target> target;

  Desk() {
    if (display.missing()) return;
    X11Performer::Options options;
    options.display = display.name();
    options.browserProfile = profile.path();
    options.appStartTimeout = 5;
    // The target reads on a thread of a test that may run beside others under the sanitizers.
    options.lentKeySettle = 0.5;
    performer = std::make_unique<X11Performer>(options);
    target = std::make_unique<Target>(display.name());
  }
};

#define NEED_DISPLAY(desk)                                                   \
  if ((desk).display.missing()) GTEST_SKIP() << *(desk).display.missing(); \
  ASSERT_TRUE((desk).target->ok())

}  // namespace

TEST(X11Performer, AppRaisesAndFocusesAWindowByItsClassThenTypeReachesIt) {
  Desk desk;
  NEED_DISPLAY(desk);
  desk.performer->activate("tavorin-target");
  desk.performer->type("Hello, World! ~ 123\n");
  EXPECT_TRUE(desk.target->waitFor([&] { return desk.target->text().size() >= 20; }));
  EXPECT_EQ(desk.target->text(), utf32("Hello, World! ~ 123\n"));
}

// The display's whole keyboard mapping, as a client reads it.
std::vector<KeySym> keyboardMapping(const std::string& display) {
  Display* d = XOpenDisplay(display.c_str());
  if (!d) return {};
  int low = 0, high = 0, per = 0;
  XDisplayKeycodes(d, &low, &high);
  KeySym* map = XGetKeyboardMapping(d, static_cast<KeyCode>(low), high - low + 1, &per);
  std::vector<KeySym> out(map, map + (high - low + 1) * per);
  XFree(map);
  XCloseDisplay(d);
  return out;
}

TEST(X11Performer, TypeOfCharactersTheLayoutLacksGoesThroughLentKeys) {
  Desk desk;
  NEED_DISPLAY(desk);
  const auto layout = keyboardMapping(desk.display.name());
  desk.performer->activate("TavorinTarget");
  // Emoji outside the 16-bit plane, right-to-left Hebrew and Arabic, accents and CJK.
  const std::string text = "Olá 😀👍🏽 שלום مرحبا 漢字 é€";
  desk.performer->type(text);
  const auto want = utf32(text);
  EXPECT_TRUE(desk.target->waitFor([&] { return desk.target->text().size() >= want.size(); }));
  EXPECT_EQ(desk.target->text(), want);

  // More characters than the keyboard has free keys: they are lent again in turns.
  std::string many;
  for (char32_t cp = 0x4E00; cp < 0x4E00 + 300; ++cp) {
    many.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    many.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    many.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
  desk.performer->type(many);
  const auto all = want + utf32(many);
  EXPECT_TRUE(desk.target->waitFor([&] { return desk.target->text().size() >= all.size(); }));
  EXPECT_EQ(desk.target->text(), all);
  // Every lent key went back: the keyboard is as it was found.
  EXPECT_EQ(keyboardMapping(desk.display.name()), layout);
}

TEST(X11Performer, ALongTextArrivesWhole) {
  Desk desk;
  NEED_DISPLAY(desk);
  desk.performer->activate("tavorin-target");
  std::string text;
  for (int i = 0; i < 10000; ++i) text.push_back(static_cast<char>('a' + i % 26));
  const auto start = std::chrono::steady_clock::now();
  desk.performer->type(text);
  EXPECT_TRUE(desk.target->waitFor([&] { return desk.target->text().size() >= text.size(); }));
  EXPECT_EQ(desk.target->text(), utf32(text));
  // 500 chunks with their short breath between them.
  EXPECT_LT(std::chrono::steady_clock::now() - start, 60s);
}

TEST(X11Performer, KeyPressesTheModifiersAroundTheKey) {
  Desk desk;
  NEED_DISPLAY(desk);
  desk.performer->activate("tavorin-target");
  desk.performer->key("ctrl+shift+p");
  desk.performer->key("return");
  desk.performer->key("alt+f4");
  ASSERT_TRUE(desk.target->waitFor([&] {
    const auto keys = desk.target->keys();
    return std::count_if(keys.begin(), keys.end(), [](auto k) { return k.sym == XK_F4; }) > 0;
  }));
  std::vector<Target::Key> main;
  for (const auto& k : desk.target->keys())
    if (k.sym != XK_Control_L && k.sym != XK_Shift_L && k.sym != XK_Alt_L && k.sym != XK_Meta_L) main.push_back(k);
  ASSERT_EQ(main.size(), 3u);
  EXPECT_EQ(main[0].sym, XK_P);  // shifted
  EXPECT_EQ(main[0].state & (ControlMask | ShiftMask), unsigned(ControlMask | ShiftMask));
  EXPECT_EQ(main[1].sym, XK_Return);
  EXPECT_EQ(main[1].state & (ControlMask | ShiftMask | Mod1Mask), 0u);
  EXPECT_EQ(main[2].sym, XK_F4);
  EXPECT_NE(main[2].state & Mod1Mask, 0u);
}

TEST(X11Performer, AKeyItCannotPressIsRefusedWithTheTablesWords) {
  Desk desk;
  NEED_DISPLAY(desk);
  try {
    desk.performer->key("cmd+hyperspace");
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("key cmd+hyperspace didn't work: ", 0), 0u) << e.what();
  }
}

TEST(X11Performer, MoveGlidesAndLandsClickHitsScrollTurnsTheWheel) {
  Desk desk;
  NEED_DISPLAY(desk);
  desk.performer->move(100, 50, std::nullopt);
  desk.performer->move(700, 400, 0.25);
  ASSERT_TRUE(desk.target->waitFor([&] { return desk.target->pointer() == std::pair{700, 400}; }));
  // A quarter second at 60 a second: about 15 steps, not one jump.
  EXPECT_GE(desk.target->motions(), 10);
  desk.performer->click(321, 123);
  desk.performer->scroll(3 * X11Performer::pixelsPerNotch, std::nullopt);
  desk.performer->scroll(-2 * X11Performer::pixelsPerNotch, 0.2);
  ASSERT_TRUE(desk.target->waitFor([&] { return desk.target->buttons().size() >= 6; }));
  const auto buttons = desk.target->buttons();
  EXPECT_EQ(buttons[0], std::make_tuple(1u, 321, 123));
  EXPECT_EQ(std::count_if(buttons.begin(), buttons.end(), [](auto b) { return std::get<0>(b) == 5; }), 3);
  EXPECT_EQ(std::count_if(buttons.begin(), buttons.end(), [](auto b) { return std::get<0>(b) == 4; }), 2);
}

TEST(X11Performer, AnAppThatIsNeitherRunningNorInstalledIsNamed) {
  Desk desk;
  NEED_DISPLAY(desk);
  try {
    desk.performer->activate("no-such-app-anywhere");
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_STREQ(e.what(), "Couldn't bring 'no-such-app-anywhere' forward — is it installed and running?");
  }
}

TEST(X11Performer, AnAppNotRunningIsStartedFromPathAndRaised) {
  Desk desk;
  NEED_DISPLAY(desk);
  if (::access("/usr/bin/xterm", X_OK) != 0) GTEST_SKIP() << "xterm is not installed (Debian package xterm)";
  desk.performer->activate("xterm");
  // Raised and focused: what is typed now reaches the terminal, not the test's window.
  const auto before = desk.target->text().size();
  desk.performer->type("exit\n");
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(desk.target->text().size(), before);
}

TEST(X11Performer, ADisplayThatGoesAwayMidRunIsAFailureNotACrash) {
  Desk desk;
  NEED_DISPLAY(desk);
  desk.performer->click(1, 1);
  desk.target.reset();
  desk.display.kill();
  try {
    desk.performer->type("still there?");
    desk.performer->key("return");
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_NE(std::string(e.what()).find("the X display"), std::string::npos) << e.what();
  }
  // And the next step says so again instead of touching the broken connection.
  EXPECT_THROW(desk.performer->click(2, 2), PerformError);
}

TEST(X11Performer, WithoutADisplayEveryStepSaysThereIsNone) {
  test::ScopedEnv noDisplay("DISPLAY", std::nullopt);
  X11Performer performer;
  try {
    performer.click(1, 1);
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_STREQ(e.what(), "click didn't work: there is no X display (DISPLAY is not set)");
  }
  EXPECT_EQ(X11Performer::inputRefusal(), "there is no X display (DISPLAY is not set)");
}

TEST(X11Performer, OpenRefusesATextThatIsNoAddress) {
  X11Performer performer;
  for (const std::string bad : {"", "not a url", "://x", "1http://x"}) {
    try {
      performer.open(bad);
      FAIL() << bad;
    } catch (const PerformError& e) {
      EXPECT_EQ(std::string(e.what()), "open didn't work: " + bad);
    }
  }
}

TEST(X11Performer, JsWithNoBrowserSaysItCannotBeReached) {
  test::TempDir profile;
  X11Performer::Options options;
  options.browserProfile = profile.path();
  X11Performer performer(options);
  try {
    performer.js("document.title");
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_EQ(e.which(), PerformError::Case::browserUnreachable);
    EXPECT_NE(std::string(e.what()).find("Chromium can't be reached"), std::string::npos);
  }
}

// The browser on camera: started on the display, navigated, and asked.
TEST(X11Performer, OpenShowsALocalPageInChromiumAndJsReadsIt) {
  Desk desk;
  NEED_DISPLAY(desk);
  if (::access("/usr/bin/chromium", X_OK) != 0) GTEST_SKIP() << "Chromium is not installed (Debian package chromium)";
  test::TempDir site;
  test::writeFile(site / "page.html",
                  "<html><head><title>Tavorin \"test\" page</title></head><body><p id=p>hi</p></body></html>");
  desk.performer->open((site / "page.html").string());
  EXPECT_EQ(desk.performer->js("document.title"), "\"Tavorin \\\"test\\\" page\"");
  EXPECT_EQ(desk.performer->js("document.getElementById('p').textContent + \" \\\\ \" + 1"), "\"hi \\\\ 1\"");
  try {
    desk.performer->js("throw new Error('nope')");
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_NE(std::string(e.what()).find("js didn't work: Error: nope"), std::string::npos) << e.what();
  }
  // A browser that crashes mid-run: the next js says it cannot be reached, and the
  // next open starts a fresh one.
  ::kill(desk.performer->browser().pid(), SIGKILL);
  std::this_thread::sleep_for(200ms);
  try {
    desk.performer->js("1");
    FAIL() << "no refusal";
  } catch (const PerformError& e) {
    EXPECT_EQ(e.which(), PerformError::Case::browserUnreachable);
  }
  desk.performer->open("file://" + (site / "page.html").string());
  EXPECT_EQ(desk.performer->js("1 + 1"), "2");
}

// `app "Chromium"` before any `open` starts the browser the performer drives, not a
// second one of the desktop's, and its page fills the screen with nothing around it.
TEST(X11Performer, AppChromiumStartsTheDrivenBrowserFillingTheScreen) {
  Desk desk;
  NEED_DISPLAY(desk);
  if (::access("/usr/bin/chromium", X_OK) != 0) GTEST_SKIP() << "Chromium is not installed (Debian package chromium)";
  // Another window of that class, as the user's own Chromium would be, is passed over.
  Target theirs(desk.display.name(), "chromium");
  ASSERT_TRUE(theirs.ok());
  desk.performer->activate("Chromium");
  ASSERT_TRUE(desk.performer->browser().isRunning());
  const int pid = desk.performer->browser().pid();
  EXPECT_EQ(desk.performer->js("[screen.width, screen.height, window.screenX, window.screenY].join(' ')"),
            "\"1280 800 0 0\"");
  EXPECT_EQ(desk.performer->js("window.innerWidth >= screen.width && window.innerHeight >= screen.height"), "true");
  // Asked again, it is the same browser, raised.
  desk.performer->activate("chromium");
  EXPECT_EQ(desk.performer->browser().pid(), pid);
}

TEST(X11Performer, AttachesToAChromiumTheUserStartedAndLeavesItRunning) {
  Desk desk;
  NEED_DISPLAY(desk);
  if (::access("/usr/bin/chromium", X_OK) != 0) GTEST_SKIP() << "Chromium is not installed (Debian package chromium)";
  test::TempDir own, logs, site;
  // Port 0: Chromium picks a free one and names it in its profile.
  const auto chromium = test::spawn("/usr/bin/chromium",
                                    {"--no-sandbox", "--remote-debugging-port=0", "--user-data-dir=" + own.path().string(),
                                     "--no-first-run", "--password-store=basic", "about:blank"},
                                    {"DISPLAY=" + desk.display.name()}, logs.path());
  ASSERT_TRUE(test::waitForFile(own / "DevToolsActivePort", 20s));
  int port = 0;
  for (int i = 0; i < 100 && port == 0; ++i) {
    std::ifstream(own / "DevToolsActivePort") >> port;
    if (port == 0) std::this_thread::sleep_for(50ms);
  }
  ASSERT_GT(port, 0);

  test::writeFile(site / "page.html", "<html><head><title>Attached</title></head><body></body></html>");
  ChromiumBrowser browser(desk.profile.path());
  browser.attachPort = port;
  browser.navigate("file://" + (site / "page.html").string());
  EXPECT_EQ(browser.evaluate("document.title"), "\"Attached\"");
  EXPECT_EQ(browser.evaluate("[1, 2].map(x => x * 21)"), "[21,42]");
  EXPECT_EQ(browser.pid(), -1);  // not ours
  browser.quit();
  EXPECT_EQ(test::waitFor(chromium.pid, 300ms), -1);  // letting go never ends the user's browser

  // A port where nothing listens says which port and how to start the browser there.
  ::kill(chromium.pid, SIGTERM);
  test::waitFor(chromium.pid, 10s);
  ChromiumBrowser gone(desk.profile.path());
  gone.attachPort = port;
  gone.timeout = 3s;
  try {
    gone.ensureRunning();
    FAIL() << "attached to nothing";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("can't reach the browser on port " + std::to_string(port) +
                                         " (start Chromium with --remote-debugging-port=" + std::to_string(port) + ")"),
              std::string::npos)
        << e.what();
  }
}
