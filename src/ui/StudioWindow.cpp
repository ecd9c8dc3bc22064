#include "ui/StudioWindow.hpp"

#include <SDL.h>
#include <imgui.h>
#include <backends/imgui_impl_opengl3.h>
#include <backends/imgui_impl_sdl.h>
#include <unistd.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <ctime>
#include <stdexcept>

#include <GL/gl.h>
#include <GL/glext.h>

#include "app/model/AppStore.hpp"
#include "base/LifetimeToken.hpp"
#include "app/service/OperatorService.hpp"
#include "base/Text.hpp"
#include "ui/FramePacer.hpp"
#include "ui/MonitorPicture.hpp"
#include "ui/PngFile.hpp"
#include "ui/Surfaces.hpp"
#include "ui/X11Connection.hpp"

namespace tavorin {

namespace {

// A control's verb, run as tavorinctl would run it; a refusal is said in a toast.
asio::awaitable<void> performed(OperatorService* service, AppModel* model, OperatorCommand command) {
  const OperatorResult result = co_await service->handle(std::move(command));
  if (!result.ok && result.error) model->toasts().post(Toast::Kind::failure, *result.error);
}

double processSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

// The few framebuffer calls beyond OpenGL 1.1, looked up through SDL.
struct FramebufferCalls {
  PFNGLGENFRAMEBUFFERSPROC gen = nullptr;
  PFNGLBINDFRAMEBUFFERPROC bind = nullptr;
  PFNGLFRAMEBUFFERTEXTURE2DPROC attach = nullptr;
  PFNGLCHECKFRAMEBUFFERSTATUSPROC status = nullptr;
  PFNGLDELETEFRAMEBUFFERSPROC remove = nullptr;
  void load() {
    gen = reinterpret_cast<PFNGLGENFRAMEBUFFERSPROC>(SDL_GL_GetProcAddress("glGenFramebuffers"));
    bind = reinterpret_cast<PFNGLBINDFRAMEBUFFERPROC>(SDL_GL_GetProcAddress("glBindFramebuffer"));
    attach = reinterpret_cast<PFNGLFRAMEBUFFERTEXTURE2DPROC>(SDL_GL_GetProcAddress("glFramebufferTexture2D"));
    status = reinterpret_cast<PFNGLCHECKFRAMEBUFFERSTATUSPROC>(SDL_GL_GetProcAddress("glCheckFramebufferStatus"));
    remove = reinterpret_cast<PFNGLDELETEFRAMEBUFFERSPROC>(SDL_GL_GetProcAddress("glDeleteFramebuffers"));
  }
  bool ready() const { return gen && bind && attach && status && remove; }
};

}  // namespace

struct StudioWindow::Impl {
  Impl(asio::io_context& c, AppStore& s) : context(c), store(s), surfaces(s), frameTimer(c) {}

  asio::io_context& context;
  AppStore& store;
  Surfaces surfaces;
  ElementRegistry registry;
  FramePacer pacer;
  SDL_Window* window = nullptr;
  SDL_GLContext gl = nullptr;
  ImGuiContext* imgui = nullptr;
  FramebufferCalls fbo;
  std::optional<asio::posix::stream_descriptor> display;
  asio::steady_timer frameTimer;
  std::optional<FramePacer::Clock::time_point> armedFor;
  // Wake-ups of the window's own (its timer, its connection), which are not news from the model.
  std::size_t ownWakeups = 0;
  bool closing = false;
  bool watching = false;
  // The monitor's film and its texture; made once the GL context is, gone before it.
  std::unique_ptr<MonitorPicture> picture;
  LifetimeToken alive;

  void watchDisplay();
  bool pumpEvents(const std::function<void()>& close);
  void frame(double width, double height);
};

bool StudioWindow::displayNamed() {
  const char* d = std::getenv("DISPLAY");
  return d && *d;
}

std::pair<int, int> StudioWindow::sizeFor(int visibleWidth, int visibleHeight) {
  return {std::clamp(visibleWidth - 48, 1180, 1440), std::clamp(visibleHeight - 48, 720, 900)};
}

StudioWindow::StudioWindow(asio::io_context& context, AppStore& store)
    : impl_(std::make_unique<Impl>(context, store)) {
  if (!displayNamed()) throw std::runtime_error("there is no display to open the window on (DISPLAY is not set)");
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
    throw std::runtime_error(std::string("the window can't open: ") + SDL_GetError());
  SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
  SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 0);
  SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
  SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, 0);
  SDL_Rect usable{0, 0, 1440 + 48, 900 + 48};
  SDL_GetDisplayUsableBounds(0, &usable);
  const auto [w, h] = sizeFor(usable.w, usable.h);
  impl_->window = SDL_CreateWindow("Tavorin", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, w, h,
                                   SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI);
  if (!impl_->window) {
    const std::string why = SDL_GetError();
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    throw std::runtime_error("the window can't open: " + why);
  }
  SDL_SetWindowMinimumSize(impl_->window, 1180, 720);
  impl_->gl = SDL_GL_CreateContext(impl_->window);
  if (!impl_->gl) {
    const std::string why = SDL_GetError();
    SDL_DestroyWindow(impl_->window);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    throw std::runtime_error("the window has no OpenGL: " + why);
  }
  SDL_GL_MakeCurrent(impl_->window, impl_->gl);
  // Frames are paced by the loop, never by the display's refresh.
  SDL_GL_SetSwapInterval(0);
  impl_->fbo.load();
  IMGUI_CHECKVERSION();
  impl_->imgui = ImGui::CreateContext();
  ImGuiIO& io = ImGui::GetIO();
  io.IniFilename = nullptr;
  io.LogFilename = nullptr;
  impl_->surfaces.theme().apply();
  impl_->surfaces.theme().loadFaces();
  ImGui_ImplSDL2_InitForOpenGL(impl_->window, impl_->gl);
  ImGui_ImplOpenGL3_Init("#version 130");
  // A frame decoded for the monitor wakes the loop for one frame: a still playhead
  // costs nothing once its picture is in, and a playing one draws each new picture.
  auto drawOne = impl_->alive.guard([s = impl_.get()] { s->pacer.request(1); });
  impl_->picture = std::make_unique<MonitorPicture>(
      [&context, drawOne] { asio::post(context, [drawOne]() mutable { drawOne(); }); });
  impl_->surfaces.setMonitorFeed(impl_->picture.get());
  impl_->pacer.request(2);
}

StudioWindow::~StudioWindow() {
  if (impl_->display) {
    // The descriptor is the X connection's own; it is closed by SDL, not here.
    impl_->display->release();
  }
  // The decoder stops and the texture goes while the GL context still stands.
  impl_->surfaces.setMonitorFeed(nullptr);
  impl_->picture.reset();
  ImGui_ImplOpenGL3_Shutdown();
  ImGui_ImplSDL2_Shutdown();
  ImGui::DestroyContext(impl_->imgui);
  SDL_GL_DeleteContext(impl_->gl);
  SDL_DestroyWindow(impl_->window);
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

int StudioWindow::width() const {
  int w = 0, h = 0;
  SDL_GetWindowSize(impl_->window, &w, &h);
  return w;
}

int StudioWindow::height() const {
  int w = 0, h = 0;
  SDL_GetWindowSize(impl_->window, &w, &h);
  return h;
}

void StudioWindow::Impl::watchDisplay() {
  if (watching) return;
  if (!display) {
    const int fd = x11ConnectionFd(window);
    if (fd < 0) return;
    display.emplace(context, fd);
  }
  watching = true;
  display->async_wait(asio::posix::stream_descriptor::wait_read, [this](std::error_code) {
    ++ownWakeups;
    // The loop takes the events and then watches again: watching from here would
    // wake at once, the bytes still unread, and never let the loop turn.
    watching = false;
  });
}

bool StudioWindow::Impl::pumpEvents(const std::function<void()>& close) {
  bool any = false;
  SDL_Event e;
  while (SDL_PollEvent(&e)) {
    any = true;
    ImGui_ImplSDL2_ProcessEvent(&e);
    if (e.type == SDL_QUIT ||
        (e.type == SDL_WINDOWEVENT && e.window.event == SDL_WINDOWEVENT_CLOSE)) {
      if (!closing && close) {
        closing = true;
        close();
      }
      continue;
    }
    if (e.type == SDL_KEYDOWN && !e.key.repeat) {
      const bool ctrl = (e.key.keysym.mod & KMOD_CTRL) != 0;
      const bool shift = (e.key.keysym.mod & KMOD_SHIFT) != 0;
      // A text field takes its own keys, Ctrl+Z included; ImGui knows whether one has them.
      const bool typing = ImGui::GetCurrentContext() && ImGui::GetIO().WantTextInput;
      const SDL_Keycode k = e.key.keysym.sym;
      if (ctrl && k == SDLK_z && !typing) surfaces.shortcut(shift ? Surfaces::Key::redo : Surfaces::Key::undo, typing);
      else if (ctrl && k == SDLK_s) surfaces.shortcut(Surfaces::Key::save, typing);
      else if (ctrl && k == SDLK_i) surfaces.shortcut(Surfaces::Key::import, typing);
      else if (!ctrl && k == SDLK_SPACE) surfaces.shortcut(Surfaces::Key::play, typing);
      else if (!ctrl && (k == SDLK_DELETE || k == SDLK_BACKSPACE)) surfaces.shortcut(Surfaces::Key::remove, typing);
    }
  }
  // Widgets settle over a frame or two after input.
  if (any) pacer.request(2);
  return any;
}

void StudioWindow::Impl::frame(double width, double height) {
  ImGui_ImplOpenGL3_NewFrame();
  ImGui_ImplSDL2_NewFrame();
  ImGui::NewFrame();
  surfaces.draw(width, height, registry);
  ImGui::Render();
  const ImGuiIO& io = ImGui::GetIO();
  glViewport(0, 0, int(io.DisplaySize.x * io.DisplayFramebufferScale.x), int(io.DisplaySize.y * io.DisplayFramebufferScale.y));
  const auto& g = surfaces.theme().panel;
  glClearColor(g[0], g[1], g[2], 1);
  glClear(GL_COLOR_BUFFER_BIT);
  ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
}

double StudioWindow::drawFrame() {
  const double before = processSeconds();
  impl_->frame(width(), height());
  SDL_GL_SwapWindow(impl_->window);
  return processSeconds() - before;
}

void StudioWindow::run() {
  Impl& s = *impl_;
  // The window's turn: take the events, draw when a frame is due, and arrange to
  // wake for the next input or frame. It runs as a handler of the context, so what
  // a control does runs on the main actor like any verb.
  auto turn = [this, &s] {
    ++s.ownWakeups;
    s.pumpEvents(close_);
    s.pacer.setAnimating(s.surfaces.animating(), s.surfaces.animationPace());
    const auto now = FramePacer::Clock::now();
    if (s.pacer.due(now)) {
      drawFrame();
      s.pacer.drawn(now);
      // Swapping reads the connection; what it brought in is taken now, or the
      // descriptor would not wake the loop for it.
      s.pumpEvents(close_);
    }
    s.watchDisplay();
    if (const auto next = s.pacer.next(); next && next != s.armedFor) {
      s.armedFor = next;
      s.frameTimer.expires_at(*next);
      s.frameTimer.async_wait([&s](std::error_code) {
        ++s.ownWakeups;
        s.armedFor.reset();
      });
    }
  };
  bool changed = true;
  while (!s.context.stopped()) {
    if (changed) s.pacer.request(1);
    s.ownWakeups = 0;
    asio::post(s.context, turn);
    // The turn, and whatever else was ready beside it.
    std::size_t ran = s.context.poll();
    if (s.context.stopped()) break;
    if (ran > s.ownWakeups) {
      changed = true;
      continue;
    }
    // Nothing but the window's own: sleep until the display, a timer, a verb or a
    // worker wakes the loop. Anything but the window's own may have changed the model.
    s.ownWakeups = 0;
    ran = s.context.run_one();
    ran += s.context.poll();
    changed = ran > s.ownWakeups;
  }
}

void StudioWindow::attachService(OperatorService& service) {
  Impl& s = *impl_;
  s.surfaces.attachService(&service, [&s, &service](OperatorCommand command) {
    asio::co_spawn(s.context, performed(&service, &s.store.production(), std::move(command)), asio::detached);
  });
}

JSONValue StudioWindow::elements() {
  // A verb that changed the model answered before its frame was drawn; what is
  // reported is what the window shows once it is.
  if (impl_->pacer.owed() > 0) {
    drawFrame();
    impl_->pacer.drawn(FramePacer::Clock::now());
  }
  return impl_->registry.report();
}

void StudioWindow::photograph(const std::filesystem::path& path, double settle, Photographed done) {
  auto timer = std::make_shared<asio::steady_timer>(impl_->context);
  timer->expires_after(std::chrono::milliseconds(static_cast<long long>(settle * 1000)));
  timer->async_wait([this, timer, path, done = std::move(done)](std::error_code) {
    try {
      done(nullptr, photographNow(path));
    } catch (...) {
      done(std::current_exception(), JSONValue());
    }
  });
}

JSONValue StudioWindow::photographNow(const std::filesystem::path& path) {
  Impl& s = *impl_;
  int w = 0, h = 0;
  SDL_GL_GetDrawableSize(s.window, &w, &h);
  if (!s.fbo.ready()) throw std::runtime_error("no picture: this OpenGL has no offscreen framebuffers");
  GLuint texture = 0, framebuffer = 0;
  glGenTextures(1, &texture);
  glBindTexture(GL_TEXTURE_2D, texture);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
  s.fbo.gen(1, &framebuffer);
  s.fbo.bind(GL_FRAMEBUFFER, framebuffer);
  s.fbo.attach(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(w) * h * 4);
  const bool complete = s.fbo.status(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
  if (complete) {
    s.frame(width(), height());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
  }
  s.fbo.bind(GL_FRAMEBUFFER, 0);
  s.fbo.remove(1, &framebuffer);
  glDeleteTextures(1, &texture);
  if (!complete) throw std::runtime_error("no picture: the offscreen framebuffer would not take the window");
  // The window itself shows the frame just photographed.
  s.pacer.request(1);
  // The window is opaque whatever the blending left in the alpha channel.
  for (std::size_t k = 3; k < pixels.size(); k += 4) pixels[k] = 255;
  PngFile::writeFromGL(path, w, h, pixels);
  return JSONValue::object({{"path", path.string()},
                            {"pixels", JSONValue::object({{"width", w}, {"height", h}})},
                            {"page", word(s.store.route().page)}});
}

}  // namespace tavorin
