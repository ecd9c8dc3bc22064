// tavorin-speech: the voice a fresh machine has out of the box. OpenAI's v1 audio
// API on 127.0.0.1 over espeak-ng; the studio's local engine talks to it.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "voice/speechserver/EspeakSpeaker.hpp"
#include "voice/speechserver/SpeechServer.hpp"

namespace {

tavorin::SpeechServer* running = nullptr;

void usage(FILE* to) {
  std::fprintf(to,
               "usage: tavorin-speech [--port N]\n"
               "Serves /v1/models, /v1/audio/voices, /v1/audio/speech and /health on 127.0.0.1\n"
               "(port %d unless told otherwise; 0 picks a free one and prints it).\n",
               tavorin::SpeechServer::defaultPort);
}

}  // namespace

int main(int argc, char** argv) {
  int port = tavorin::SpeechServer::defaultPort;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      usage(stdout);
      return 0;
    }
    std::string value;
    if (arg == "--port" && i + 1 < argc)
      value = argv[++i];
    else if (arg.starts_with("--port="))
      value = arg.substr(7);
    else {
      usage(stderr);
      return 2;
    }
    char* end = nullptr;
    long parsed = std::strtol(value.c_str(), &end, 10);
    if (value.empty() || *end != '\0' || parsed < 0 || parsed > 65535) {
      std::fprintf(stderr, "tavorin-speech: '%s' is not a port number (0 to 65535).\n", value.c_str());
      return 2;
    }
    port = static_cast<int>(parsed);
  }

  // The signals are taken by a thread that waits for them, so the server stops
  // cleanly instead of dying mid-answer.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  try {
    tavorin::EspeakSpeaker speaker;
    tavorin::SpeechServer server(speaker);
    int bound = server.bind(port);
    running = &server;
    std::thread waiter([&] {
      int got = 0;
      sigwait(&signals, &got);
      if (running) running->stop();
    });
    waiter.detach();
    std::printf("tavorin-speech listening on http://127.0.0.1:%d\n", bound);
    std::fflush(stdout);
    server.serve();
    running = nullptr;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tavorin-speech: %s\n", error.what());
    return 1;
  }
  return 0;
}
