#pragma once

struct SDL_Window;

namespace tavorin {

// The file descriptor of the X connection under an SDL window, so the loop can wait
// on it beside its other work; -1 when the window is not on X11. Kept apart because
// Xlib's macros must not meet the rest of the window's code.
int x11ConnectionFd(SDL_Window* window);

}  // namespace tavorin
