#include "platform/X11Performer.hpp"

#include "kit/ScreenRecorder.hpp"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "base/Text.hpp"
#include "kit/Keys.hpp"
#include "platform/ChromiumBrowser.hpp"
#include "platform/TavorinPaths.hpp"
#include "platform/UserDefaults.hpp"

extern char** environ;

namespace tavorin {

namespace {

// The key table's names, as X keysyms.
const std::map<std::string, KeySym, std::less<>>& keysyms() {
  static const std::map<std::string, KeySym, std::less<>> table = [] {
    std::map<std::string, KeySym, std::less<>> t{
        {"equal", XK_equal}, {"=", XK_equal}, {"minus", XK_minus}, {"-", XK_minus},
        {"bracketright", XK_bracketright}, {"]", XK_bracketright}, {"bracketleft", XK_bracketleft},
        {"[", XK_bracketleft}, {"quote", XK_apostrophe}, {"'", XK_apostrophe}, {"semicolon", XK_semicolon},
        {";", XK_semicolon}, {"backslash", XK_backslash}, {"\\", XK_backslash}, {"comma", XK_comma},
        {",", XK_comma}, {"slash", XK_slash}, {"/", XK_slash}, {"period", XK_period}, {".", XK_period},
        {"grave", XK_grave}, {"`", XK_grave}, {"return", XK_Return}, {"enter", XK_Return}, {"tab", XK_Tab},
        {"space", XK_space}, {"delete", XK_BackSpace}, {"backspace", XK_BackSpace}, {"escape", XK_Escape},
        {"esc", XK_Escape}, {"forwarddelete", XK_Delete}, {"fwddelete", XK_Delete}, {"home", XK_Home},
        {"end", XK_End}, {"pageup", XK_Prior}, {"pgup", XK_Prior}, {"pagedown", XK_Next}, {"pgdown", XK_Next},
        {"help", XK_Help}, {"left", XK_Left}, {"right", XK_Right}, {"down", XK_Down}, {"up", XK_Up}};
    for (char c = 'a'; c <= 'z'; ++c) t[std::string(1, c)] = XK_a + (c - 'a');
    for (char c = '0'; c <= '9'; ++c) t[std::string(1, c)] = XK_0 + (c - '0');
    for (int f = 1; f <= 12; ++f) t["f" + std::to_string(f)] = XK_F1 + (f - 1);
    return t;
  }();
  return table;
}

// The left key of each modifier; command is the logo key an X desktop has in its place.
KeySym modifierKeysym(Keys::Modifier m) {
  switch (m) {
    case Keys::Modifier::command: return XK_Super_L;
    case Keys::Modifier::shift: return XK_Shift_L;
    case Keys::Modifier::option: return XK_Alt_L;
    case Keys::Modifier::control: return XK_Control_L;
  }
  return NoSymbol;
}

// Code points of UTF-8 text; a broken sequence reads as U+FFFD.
std::vector<char32_t> codePoints(std::string_view text) {
  std::vector<char32_t> out;
  for (std::size_t i = 0; i < text.size();) {
    const auto b = static_cast<unsigned char>(text[i]);
    int length = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    if (length == 0 || i + length > text.size()) {
      out.push_back(0xFFFD);
      ++i;
      continue;
    }
    char32_t cp = length == 1 ? b : b & (0xFF >> (length + 1));
    bool ok = true;
    for (int k = 1; k < length; ++k) {
      const auto c = static_cast<unsigned char>(text[i + k]);
      if ((c >> 6) != 2) ok = false;
      cp = (cp << 6) | (c & 0x3F);
    }
    out.push_back(ok ? cp : 0xFFFD);
    i += ok ? length : 1;
  }
  return out;
}

KeySym keysymFor(char32_t cp) {
  if (cp == '\n' || cp == '\r') return XK_Return;
  if (cp == '\t') return XK_Tab;
  if (cp == 0x08) return XK_BackSpace;
  if ((cp >= 0x20 && cp <= 0x7E) || (cp >= 0xA0 && cp <= 0xFF)) return cp;
  return 0x01000000 | cp;
}

thread_local bool ioFailed = false;

int quietIOError(Display*) { return 0; }

void ioExit(Display*, void*) { ioFailed = true; }

struct XDeleter {
  void operator()(void* p) const {
    if (p) ::XFree(p);
  }
};

}  // namespace

struct X11Performer::Connection {
  using Clock = std::chrono::steady_clock;
  // A keycode with no symbols, lent to a character the layout lacks, and when it was last pressed.
  struct SpareKey {
    KeyCode code = 0;
    KeySym sym = NoSymbol;
    Clock::time_point pressed{};
  };

  Display* display = nullptr;
  std::vector<SpareKey> spare;

  ~Connection() {
    if (!display) return;
    if (!ioFailed) restore();
    XCloseDisplay(display);
  }

  void check(const std::string& step) {
    if (ioFailed) throw PerformError::failed(step, "the X display went away");
  }

  Window root() const { return DefaultRootWindow(display); }

  void sync(const std::string& step) {
    XSync(display, False);
    check(step);
  }

  bool anyLent() const {
    return std::any_of(spare.begin(), spare.end(), [](const SpareKey& k) { return k.sym != NoSymbol; });
  }

  void restore() {
    if (!anyLent()) return;
    for (auto& key : spare) {
      if (key.sym == NoSymbol) continue;
      KeySym none[2] = {NoSymbol, NoSymbol};
      XChangeKeyboardMapping(display, key.code, 2, none, 1);
      key.sym = NoSymbol;
    }
    XSync(display, False);
  }

  SpareKey* lentFor(KeySym sym) {
    const auto it = std::find_if(spare.begin(), spare.end(), [&](const SpareKey& k) { return k.sym == sym; });
    return it == spare.end() ? nullptr : &*it;
  }

  bool inLayout(KeySym sym) {
    const KeyCode kc = XKeysymToKeycode(display, sym);
    return kc != 0 && (XkbKeycodeToKeysym(display, kc, 0, 0) == sym || XkbKeycodeToKeysym(display, kc, 0, 1) == sym);
  }

  // The spare key `sym` would be lent: a free one, else the one pressed longest ago.
  SpareKey* nextToLend() {
    if (spare.empty()) return nullptr;
    const auto free = std::find_if(spare.begin(), spare.end(), [](const SpareKey& k) { return k.sym == NoSymbol; });
    if (free != spare.end()) return &*free;
    return &*std::min_element(spare.begin(), spare.end(),
                              [](const SpareKey& a, const SpareKey& b) { return a.pressed < b.pressed; });
  }

  // Seconds to wait before `sym` can be typed. A window translates a key press by
  // the mapping it reads when it gets to the event, not the one at the press, so a
  // lent key is taken back only once its last press is `settle` seconds old.
  double lendWait(KeySym sym, double settle) {
    if (lentFor(sym) || inLayout(sym)) return 0;
    const SpareKey* key = nextToLend();
    if (!key || key->sym == NoSymbol) return 0;
    const double age = std::chrono::duration<double>(Clock::now() - key->pressed).count();
    return std::max(0.0, settle - age);
  }

  // Seconds until every lent key's last press is `settle` seconds old.
  double returnWait(double settle) const {
    double wait = 0;
    for (const auto& key : spare)
      if (key.sym != NoSymbol)
        wait = std::max(wait, settle - std::chrono::duration<double>(Clock::now() - key.pressed).count());
    return wait;
  }

  void pressed(KeyCode kc) {
    for (auto& key : spare)
      if (key.code == kc && key.sym != NoSymbol) key.pressed = Clock::now();
  }

  // The keycode that gives `sym`, and whether shift is needed for it. A symbol the
  // layout lacks is put on a spare keycode until the key is needed again; `lentNow`
  // says whether this call did so.
  std::pair<KeyCode, bool> code(KeySym sym, const std::string& step, bool* lentNow = nullptr) {
    if (SpareKey* key = lentFor(sym)) {
      key->pressed = Clock::now();
      return {key->code, false};
    }
    if (const KeyCode kc = XKeysymToKeycode(display, sym); kc != 0) {
      if (XkbKeycodeToKeysym(display, kc, 0, 0) == sym) return {kc, false};
      if (XkbKeycodeToKeysym(display, kc, 0, 1) == sym) return {kc, true};
    }
    SpareKey* key = nextToLend();
    if (!key) throw PerformError::failed(step, "the keyboard has no free key to type this character on");
    KeySym both[2] = {sym, sym};
    XChangeKeyboardMapping(display, key->code, 2, both, 1);
    key->sym = sym;
    key->pressed = Clock::now();
    if (lentNow) *lentNow = true;
    return {key->code, false};
  }
};

X11Performer::X11Performer() : X11Performer(Options{}) {}

X11Performer::X11Performer(Options options) : options_(std::move(options)) {
  if (options_.browserProfile.empty()) options_.browserProfile = TavorinPaths::supportDir() / "chromium";
  if (!options_.browserPort) {
    auto port = Environment::value("TAVORIN_CHROMIUM_PORT");
    if (!port) port = UserDefaults::standard().stringValue("chromiumPort");
    if (port) {
      try {
        const int n = std::stoi(*port);
        if (n > 0 && n < 65536) options_.browserPort = n;
      } catch (const std::exception&) {
        // Not a port: the studio's own browser, as if none were named.
      }
    }
  }
}

X11Performer::~X11Performer() = default;

X11Performer::Connection& X11Performer::connection(const std::string& step) {
  if (x_ && ioFailed) {
    // The connection broke: nothing more is sent on it; closing only frees it.
    x_->spare.clear();
    XCloseDisplay(x_->display);
    x_->display = nullptr;
    x_.reset();
    ioFailed = false;
  }
  if (x_) return *x_;
  const auto name = options_.display ? options_.display : Environment::value("DISPLAY");
  if (!name || name->empty()) throw PerformError::failed(step, "there is no X display (DISPLAY is not set)");
  XSetIOErrorHandler(quietIOError);
  Display* display = XOpenDisplay(name->c_str());
  if (!display) throw PerformError::failed(step, "the X display " + *name + " can't be reached");
  XSetIOErrorExitHandler(display, ioExit, nullptr);
  int event, error, major, minor;
  if (!XTestQueryExtension(display, &event, &error, &major, &minor)) {
    XCloseDisplay(display);
    throw PerformError::failed(step, "the X display " + *name + " has no XTEST extension for synthetic input");
  }
  auto c = std::make_unique<Connection>();
  c->display = display;
  int low = 0, high = 0, per = 0;
  XDisplayKeycodes(display, &low, &high);
  std::unique_ptr<KeySym, XDeleter> map(XGetKeyboardMapping(display, static_cast<KeyCode>(low), high - low + 1, &per));
  for (int kc = high; kc >= low && c->spare.size() < 64; --kc) {
    bool empty = true;
    for (int i = 0; i < per; ++i)
      if (map.get()[(kc - low) * per + i] != NoSymbol) empty = false;
    if (empty) c->spare.push_back({static_cast<KeyCode>(kc)});
  }
  x_ = std::move(c);
  return *x_;
}

std::optional<std::string> X11Performer::inputRefusal(std::optional<std::string> display) {
  const auto name = display ? display : Environment::value("DISPLAY");
  if (!name || name->empty()) return "there is no X display (DISPLAY is not set)";
  XSetIOErrorHandler(quietIOError);
  Display* d = XOpenDisplay(name->c_str());
  if (!d) return "the X display " + *name + " can't be reached";
  int event, error, major, minor;
  const bool xtest = XTestQueryExtension(d, &event, &error, &major, &minor);
  XCloseDisplay(d);
  if (!xtest) return "the X display " + *name + " has no XTEST extension for synthetic input";
  return std::nullopt;
}

void X11Performer::key(const std::string& text) {
  const std::string step = "key " + text;
  const auto combo = Keys::parse(text);
  if (!combo) throw PerformError::failed(step, Keys::refusal(text).value_or("unknown key"));
  const auto sym = keysyms().find(combo->name);
  if (sym == keysyms().end()) throw PerformError::failed(step, "unknown key");
  auto& x = connection(step);
  std::vector<KeyCode> held;
  for (auto m : combo->modifiers) {
    const KeyCode kc = XKeysymToKeycode(x.display, modifierKeysym(m));
    if (kc == 0) throw PerformError::failed(step, "the keyboard has no " + std::string(Keys::name(m)) + " key");
    XTestFakeKeyEvent(x.display, kc, True, CurrentTime);
    held.push_back(kc);
  }
  const auto [kc, shifted] = x.code(sym->second, step);
  XTestFakeKeyEvent(x.display, kc, True, CurrentTime);
  XTestFakeKeyEvent(x.display, kc, False, CurrentTime);
  (void)shifted;  // a named key is pressed as it stands; shift comes only from the combination
  for (auto it = held.rbegin(); it != held.rend(); ++it) XTestFakeKeyEvent(x.display, *it, False, CurrentTime);
  XFlush(x.display);
  x.check(step);
  pause(0.08);  // the application catches up before the next step
}

void X11Performer::type(const std::string& text) {
  const std::string step = "type";
  auto& x = connection(step);
  const auto points = codePoints(text);
  const KeyCode shift = XKeysymToKeycode(x.display, XK_Shift_L);
  std::vector<std::pair<KeyCode, bool>> batch;
  bool newlyLent = false;
  // Sends what is collected. Keys lent for it are announced first, and the window is
  // given a moment to read the new mapping before the keys come.
  auto flush = [&] {
    if (newlyLent) {
      x.sync(step);
      pause(options_.typePause);
      newlyLent = false;
    }
    for (const auto& [kc, shifted] : batch) {
      if (shifted && shift) XTestFakeKeyEvent(x.display, shift, True, CurrentTime);
      XTestFakeKeyEvent(x.display, kc, True, CurrentTime);
      XTestFakeKeyEvent(x.display, kc, False, CurrentTime);
      if (shifted && shift) XTestFakeKeyEvent(x.display, shift, False, CurrentTime);
    }
    x.sync(step);
    for (const auto& [kc, shifted] : batch) x.pressed(kc);
    batch.clear();
  };
  try {
    for (std::size_t from = 0; from < points.size(); from += chunk) {
      const std::size_t to = std::min(points.size(), from + chunk);
      for (std::size_t i = from; i < to; ++i) {
        const KeySym sym = keysymFor(points[i]);
        if (const double wait = x.lendWait(sym, options_.lentKeySettle); wait > 0) {
          // Every spare key is still being read: what is collected goes, and the oldest is lent again after.
          flush();
          pause(wait);
        }
        batch.push_back(x.code(sym, step, &newlyLent));
      }
      flush();
      if (to < points.size()) pause(options_.typePause);
    }
    // The lent keys go back only once the window has read what they typed.
    if (x.anyLent()) {
      pause(x.returnWait(options_.lentKeySettle));
      x.restore();
    }
  } catch (const PerformCancelled&) {
    if (!ioFailed) x.restore();
    throw;
  }
}

void X11Performer::move(double tx, double ty, std::optional<double> over) {
  const std::string step = "move";
  auto& x = connection(step);
  if (!over || *over <= 0) {
    XTestFakeMotionEvent(x.display, -1, static_cast<int>(std::lround(tx)), static_cast<int>(std::lround(ty)),
                         CurrentTime);
    x.sync(step);
    return;
  }
  Window rootReturn, child;
  int sx = 0, sy = 0, wx, wy;
  unsigned mask;
  XQueryPointer(x.display, x.root(), &rootReturn, &child, &sx, &sy, &wx, &wy, &mask);
  x.check(step);
  const int steps = Easing::steps(*over);
  for (double f : Easing::curve(steps)) {
    XTestFakeMotionEvent(x.display, -1, static_cast<int>(std::lround(sx + (tx - sx) * f)),
                         static_cast<int>(std::lround(sy + (ty - sy) * f)), CurrentTime);
    XFlush(x.display);
    x.check(step);
    pause(*over / steps);
  }
}

void X11Performer::scroll(double pixels, std::optional<double> over) {
  const std::string step = "scroll";
  auto& x = connection(step);
  // Positive scrolls down the page: wheel button 5; negative, up: button 4.
  const double notches = std::clamp(pixels / pixelsPerNotch, -2147483647.0, 2147483647.0);
  const long long total = std::llround(notches);
  auto send = [&](long long amount) {
    const unsigned button = amount > 0 ? 5 : 4;
    for (long long i = 0; i < std::llabs(amount); ++i) {
      XTestFakeButtonEvent(x.display, button, True, CurrentTime);
      XTestFakeButtonEvent(x.display, button, False, CurrentTime);
    }
    XFlush(x.display);
    x.check(step);
  };
  if (!over || *over <= 0) {
    send(total);
    x.sync(step);
    return;
  }
  const int steps = Easing::steps(*over);
  long long sent = 0;
  for (double f : Easing::curve(steps)) {
    const long long amount = std::llround(static_cast<double>(total) * f) - sent;
    if (amount != 0) send(amount);
    sent += amount;
    pause(*over / steps);
  }
}

void X11Performer::click(double cx, double cy) {
  const std::string step = "click";
  auto& x = connection(step);
  XTestFakeMotionEvent(x.display, -1, static_cast<int>(std::lround(cx)), static_cast<int>(std::lround(cy)),
                       CurrentTime);
  XTestFakeButtonEvent(x.display, 1, True, CurrentTime);
  XTestFakeButtonEvent(x.display, 1, False, CurrentTime);
  x.sync(step);
  pause(0.12);  // time for the target to react on camera
}

namespace {

std::optional<std::string> textProperty(Display* d, Window w, Atom property, Atom type) {
  Atom actual;
  int format;
  unsigned long count, after;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(d, w, property, 0, 4096, False, type, &actual, &format, &count, &after, &data) !=
          Success ||
      !data)
    return std::nullopt;
  std::unique_ptr<unsigned char, XDeleter> hold(data);
  if (actual == None || format != 8) return std::nullopt;
  return std::string(reinterpret_cast<char*>(data), count);
}

std::optional<long> cardinal(Display* d, Window w, Atom property) {
  Atom actual;
  int format;
  unsigned long count, after;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(d, w, property, 0, 1, False, XA_CARDINAL, &actual, &format, &count, &after, &data) !=
          Success ||
      !data)
    return std::nullopt;
  std::unique_ptr<unsigned char, XDeleter> hold(data);
  if (count < 1 || format != 32) return std::nullopt;
  return *reinterpret_cast<long*>(data);
}

std::string programOf(long pid) {
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

// Whether a top-level window answers to the name: its class, its title, or the program behind it.
bool answersTo(Display* d, Window w, const std::string& name) {
  XClassHint hint{};
  if (XGetClassHint(d, w, &hint)) {
    const bool match = (hint.res_name && Text::equalsIgnoringCase(hint.res_name, name)) ||
                       (hint.res_class && Text::equalsIgnoringCase(hint.res_class, name));
    if (hint.res_name) XFree(hint.res_name);
    if (hint.res_class) XFree(hint.res_class);
    if (match) return true;
  }
  const Atom utf8 = XInternAtom(d, "UTF8_STRING", False);
  if (auto title = textProperty(d, w, XInternAtom(d, "_NET_WM_NAME", False), utf8); title && *title == name)
    return true;
  if (auto title = textProperty(d, w, XA_WM_NAME, XA_STRING); title && *title == name) return true;
  if (auto pid = cardinal(d, w, XInternAtom(d, "_NET_WM_PID", False)))
    if (Text::equalsIgnoringCase(programOf(*pid), name)) return true;
  return false;
}

// Mapped client windows: the window manager's list when there is one, else the
// root's children and, for a manager's frames, their children; the first that `fits`.
std::optional<Window> findWindow(Display* d, Window root, const std::function<bool(Window)>& fits) {
  std::vector<Window> candidates;
  const Atom clientList = XInternAtom(d, "_NET_CLIENT_LIST", False);
  Atom actual;
  int format;
  unsigned long count = 0, after;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(d, root, clientList, 0, 65536, False, XA_WINDOW, &actual, &format, &count, &after,
                         &data) == Success &&
      data) {
    std::unique_ptr<unsigned char, XDeleter> hold(data);
    auto* windows = reinterpret_cast<Window*>(data);
    candidates.assign(windows, windows + count);
  }
  if (candidates.empty()) {
    Window r, parent, *children = nullptr;
    unsigned n = 0;
    if (XQueryTree(d, root, &r, &parent, &children, &n) && children) {
      for (unsigned i = 0; i < n; ++i) {
        candidates.push_back(children[i]);
        Window r2, p2, *inner = nullptr;
        unsigned m = 0;
        if (XQueryTree(d, children[i], &r2, &p2, &inner, &m) && inner) {
          candidates.insert(candidates.end(), inner, inner + m);
          XFree(inner);
        }
      }
      XFree(children);
    }
  }
  for (Window w : candidates) {
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(d, w, &attributes) || attributes.map_state != IsViewable) continue;
    if (fits(w)) return w;
  }
  return std::nullopt;
}

std::optional<Window> findWindow(Display* d, Window root, const std::string& name) {
  return findWindow(d, root, [&](Window w) { return answersTo(d, w, name); });
}

// The window a process shows, by the pid it stamps on it.
std::optional<Window> windowOfProcess(Display* d, Window root, long pid) {
  const Atom wmPid = XInternAtom(d, "_NET_WM_PID", False);
  return findWindow(d, root, [&](Window w) { return cardinal(d, w, wmPid) == std::optional<long>(pid); });
}

bool hasWindowManager(Display* d, Window root) {
  const Atom check = XInternAtom(d, "_NET_SUPPORTING_WM_CHECK", False);
  Atom actual;
  int format;
  unsigned long count = 0, after;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(d, root, check, 0, 1, False, XA_WINDOW, &actual, &format, &count, &after, &data) !=
          Success ||
      !data)
    return false;
  XFree(data);
  return count > 0;
}

bool isExecutable(const std::filesystem::path& p) {
  struct stat s{};
  return ::stat(p.c_str(), &s) == 0 && S_ISREG(s.st_mode) && ::access(p.c_str(), X_OK) == 0;
}

// The command line a desktop entry for `name` runs, field codes dropped.
std::optional<std::vector<std::string>> desktopEntry(const std::string& name) {
  std::vector<std::filesystem::path> roots;
  const auto home = Environment::value("XDG_DATA_HOME");
  roots.push_back(home && !home->empty() ? std::filesystem::path(*home)
                                         : Environment::home() / ".local/share");
  const auto dirs = Environment::value("XDG_DATA_DIRS").value_or("/usr/local/share:/usr/share");
  for (auto piece : Text::split(dirs, ':'))
    if (!piece.empty()) roots.emplace_back(std::string(piece));
  for (const auto& root : roots) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(root / "applications", ec)) {
      if (entry.path().extension() != ".desktop") continue;
      std::ifstream in(entry.path());
      std::string line, exec, entryName;
      bool inMain = false;
      while (std::getline(in, line)) {
        if (!line.empty() && line[0] == '[') inMain = line == "[Desktop Entry]";
        if (!inMain) continue;
        if (line.rfind("Exec=", 0) == 0) exec = line.substr(5);
        if (line.rfind("Name=", 0) == 0) entryName = line.substr(5);
      }
      if (exec.empty()) continue;
      if (!Text::equalsIgnoringCase(entry.path().stem().string(), name) && !Text::equalsIgnoringCase(entryName, name))
        continue;
      std::vector<std::string> words;
      std::istringstream split(exec);
      std::string word;
      while (split >> word)
        if (!(word.size() == 2 && word[0] == '%')) words.push_back(word);
      if (!words.empty()) return words;
    }
  }
  return std::nullopt;
}

std::optional<std::vector<std::string>> launchCommand(const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
  if (auto entry = desktopEntry(name)) return entry;
  const std::string path = Environment::value("PATH").value_or("/usr/bin:/bin");
  for (auto dir : Text::split(path, ':'))
    if (!dir.empty() && isExecutable(std::filesystem::path(std::string(dir)) / name))
      return std::vector<std::string>{name};
  return std::nullopt;
}

bool launch(const std::vector<std::string>& command, const std::string& display) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e)
    if (std::string_view(*e).rfind("DISPLAY=", 0) != 0) env.emplace_back(*e);
  env.push_back("DISPLAY=" + display);
  std::vector<char*> envp, argv;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> args = command;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // Its own session: the app outlives the run and the studio's terminal signals.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", 0, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 1, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 1, 0);
  pid_t pid;
  const int failed = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (failed != 0) return false;
  // The app outlives the step; a thread collects it whenever it ends.
  std::thread([pid] { ::waitpid(pid, nullptr, 0); }).detach();
  return true;
}

}  // namespace

unsigned long X11Performer::windowOf(const std::string& app, std::optional<std::string> display) {
  const std::string name = display.value_or(std::getenv("DISPLAY") ? std::getenv("DISPLAY") : "");
  Display* d = name.empty() ? nullptr : XOpenDisplay(name.c_str());
  if (!d) throw RecordError::noPermission();
  const auto window = findWindow(d, DefaultRootWindow(d), app);
  XCloseDisplay(d);
  if (window) return *window;
  // A program of that name that shows nothing is told apart from one not running.
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ec)) {
    const std::string pid = entry.path().filename().string();
    if (pid.find_first_not_of("0123456789") == std::string::npos && Text::equalsIgnoringCase(programOf(std::stol(pid)), app))
      throw RecordError::noWindow(app);
  }
  throw RecordError::noSuchApp(app);
}

void X11Performer::activate(const std::string& app) {
  const std::string step = "app " + app;
  auto& x = connection(step);
  std::optional<Window> window;
  if (isBrowser(app)) {
    // The browser is the one the studio drives, which `open` and `js` reach: started
    // here when it is not running, and told from any other Chromium by its pid.
    try {
      browser().ensureRunning();
    } catch (const std::exception&) {
      throw PerformError::noSuchApp(app);
    }
    // The user's own browser, attached by its port, has no pid of ours: its name finds it.
    const long pid = browser().pid();
    for (int i = 0; i < static_cast<int>(options_.appStartTimeout / 0.1) && !window; ++i) {
      window = pid > 0 ? windowOfProcess(x.display, x.root(), pid) : findWindow(x.display, x.root(), app);
      if (!window) pause(0.1);
      x.check(step);
    }
    if (!window) throw PerformError::noSuchApp(app);
  } else {
    window = findWindow(x.display, x.root(), app);
  }
  if (!window) {
    const auto command = launchCommand(app);
    if (!command) throw PerformError::noSuchApp(app);
    const auto name = options_.display ? options_.display : Environment::value("DISPLAY");
    if (!launch(*command, name.value_or(""))) throw PerformError::noSuchApp(app);
    const int tries = static_cast<int>(options_.appStartTimeout / 0.1);
    for (int i = 0; i < tries && !window; ++i) {
      pause(0.1);
      window = findWindow(x.display, x.root(), app);
      x.check(step);
    }
    if (!window) throw PerformError::noSuchApp(app);
  }
  XRaiseWindow(x.display, *window);
  if (hasWindowManager(x.display, x.root())) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = *window;
    event.xclient.message_type = XInternAtom(x.display, "_NET_ACTIVE_WINDOW", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = 2;  // a request from a pager-like tool
    event.xclient.data.l[1] = CurrentTime;
    XSendEvent(x.display, x.root(), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
  } else {
    XSetInputFocus(x.display, *window, RevertToParent, CurrentTime);
  }
  x.sync(step);
  pause(0.1);
}

bool X11Performer::isBrowser(const std::string& app) const {
  const std::string program = options_.browserProgram.empty()
                                  ? std::string("chromium")
                                  : std::filesystem::path(options_.browserProgram).filename().string();
  return Text::equalsIgnoringCase(app, program);
}

ChromiumBrowser& X11Performer::browser() {
  if (!browser_) {
    browser_ = std::make_unique<ChromiumBrowser>(options_.browserProfile, options_.browserProgram);
    // The browser is a window on the display the steps act on; one we start fills its screen.
    browser_->display = options_.display ? options_.display : Environment::value("DISPLAY");
    browser_->attachPort = options_.browserPort;
    if (!browser_->attachPort) {
      try {
        auto& x = connection("open");
        const int screen = DefaultScreen(x.display);
        browser_->fill = std::make_pair(DisplayWidth(x.display, screen), DisplayHeight(x.display, screen));
      } catch (const PerformError&) {
        // No display to measure: the browser's own window, and the step says why it failed.
      }
    }
  }
  return *browser_;
}

void X11Performer::open(const std::string& url) {
  // A URL is a scheme, a colon and something after it; a bare path is taken as a file.
  std::string target(Text::trimSpace(url));
  if (!target.empty() && target[0] == '/') target = "file://" + target;
  const auto colon = target.find(':');
  const bool parses = colon != std::string::npos && colon > 0 && colon + 1 < target.size() &&
                      std::all_of(target.begin(), target.begin() + static_cast<long>(colon), [](char c) {
                        return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
                      }) &&
                      std::isalpha(static_cast<unsigned char>(target[0])) &&
                      target.find_first_of(" \t\n") == std::string::npos;
  if (!parses) throw PerformError::failed("open", url);
  try {
    browser().navigate(target);
  } catch (const std::exception& e) {
    throw PerformError::failed("open " + url, e.what());
  }
}

std::string X11Performer::js(const std::string& script) {
  if (!browser().isRunning()) throw PerformError::browserUnreachable("it is not running");
  try {
    return browser().evaluate(script);
  } catch (const std::invalid_argument& e) {
    throw PerformError::failed("js", e.what());
  } catch (const std::exception& e) {
    throw PerformError::browserUnreachable(e.what());
  }
}

}  // namespace tavorin
