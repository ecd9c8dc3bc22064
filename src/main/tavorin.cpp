#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <csignal>
#include <string>
#include <vector>

#include "app/process/AppDelegate.hpp"

// The application loop is the process's one io_context, run on the main thread:
// it is the main actor, and everything that touches the model runs on it. With a
// window open, the window's loop turns the context between frames.
int main(int argc, char** argv) {
  // A child that dies mid-write (a browser, ffmpeg, a voice server) is an error to
  // report on the write, never a signal that ends the studio.
  std::signal(SIGPIPE, SIG_IGN);
  asio::io_context context(1);
  tavorin::AppDelegate delegate(context);
  std::vector<std::string> arguments(argv + 1, argv + argc);
  asio::post(context, [&] { delegate.applicationDidFinishLaunching(arguments); });
  delegate.run();
  return delegate.exitCode();
}
