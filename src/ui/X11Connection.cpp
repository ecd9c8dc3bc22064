#include "ui/X11Connection.hpp"

#include <SDL.h>
#include <SDL_syswm.h>

namespace tavorin {

int x11ConnectionFd(SDL_Window* window) {
  SDL_SysWMinfo info;
  SDL_VERSION(&info.version);
  if (!SDL_GetWindowWMInfo(window, &info) || info.subsystem != SDL_SYSWM_X11) return -1;
  return ConnectionNumber(info.info.x11.display);
}

}  // namespace tavorin
