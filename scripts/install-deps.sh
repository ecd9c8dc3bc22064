#!/usr/bin/env bash
# Installs the Debian packages that Tavorin's build and tests need. Idempotent and
# non-interactive: only what is missing is installed, and nothing at all when
# everything is already there.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libasio-dev nlohmann-json3-dev libssl-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev libsoxr-dev
  libsdl2-dev libfontconfig-dev ffmpeg fonts-dejavu-core
  libicu-dev clang
  # The phonemiser's data is built from these (tools/build_speech_data.py).
  festlex-cmu festlex-poslex wamerican wamerican-large espeak-ng
  clang-14 libclang-rt-14-dev ccache  # the fuzz targets (-DTAVORIN_FUZZ=ON)
  util-linux                        # prlimit, for the out-of-descriptors test
  gdb                               # the stacks of a studio that hangs in an end-to-end test
  xdg-utils                         # xdg-open, which shows a take's folder in the file manager
  libcairo2-dev libpng-dev libstb-dev
  libcurl4-openssl-dev libcpp-httplib-dev libespeak-ng-dev espeak-ng-data
  # The letters-to-phonemes model: BLAS at run time, torch (CPU) to retrain it (tools/train_g2p.py).
  libopenblas-dev python3-torch
  # The shoot: the desktop it performs on and films (XTest, libxdo, x11grab and x264),
  # a virtual display for tests and for machines without one, and Chromium for web steps.
  libavdevice-dev libswscale-dev libx11-dev libxtst-dev libxdo-dev libwebsockets-dev xvfb xdotool xterm chromium
  # A sound server of the tests' own, for takes that record the desktop's sound.
  pulseaudio pulseaudio-utils
  # scripts/demo-film reads the studio's answers with jq; tools/make-demo-bed.sh synthesises with sox.
  jq sox libsox-fmt-base
  # The outside world: audio fetched from a URL, and curl to play the browser in tests.
  yt-dlp curl
  # The window: Dear ImGui on SDL2 and OpenGL.
  libimgui-dev libgl-dev libgl1-mesa-dri
  # The export sheet's save panel: the desktop's folder chooser.
  zenity
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then sudo=(); else sudo=(sudo); fi
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
