#!/usr/bin/env bash
# Makes the demo's music bed, examples/halden-demo/music/halden-bed.ogg: a soft pad of
# four slow chords, synthesised by sox from sine and triangle tones, warmed by a low-pass
# and a long reverb. Nothing is downloaded. Usage: tools/make-demo-bed.sh [out.ogg]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="${1:-$root/examples/halden-demo/music/halden-bed.ogg}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Fmaj9, Am7, Dm9 and Bbmaj7: each sounds 15 seconds and the next comes in 10 seconds
# after it, so neighbours overlap and the pad never falls silent: 45 seconds, the
# length of the rendered demo with its closing hold.
chords=("F2 C3 A3 E4 G4" "A2 E3 G3 C4 E4" "D2 A2 F3 C4 E4" "A#1 F2 A#2 D3 A3")
length=15
step=10
parts=()
n=0
for chord in "${chords[@]}"; do
  tones=()
  for note in $chord; do tones+=(sine "$note"); done
  # The first chord is there almost at once, under the title; the others swell in.
  rise=3
  [ $n -eq 0 ] && rise=0.6
  sox -q -n -r 44100 -c 1 "$work/c$n.wav" synth "$length" "${tones[@]}" fade h "$rise" "$length" 5 pad $((n * step)) 0
  parts+=("$work/c$n.wav")
  n=$((n + 1))
done
sox -q -m "${parts[@]}" "$work/pad.wav"
# The fades come before the reverb: after it, sox's fade misreads the length.
sox -q "$work/pad.wav" "$work/wide.wav" fade t 0.3 -0 5 lowpass 1400 tremolo 0.15 12 reverb 60 50 100 100 20 \
  channels 2 norm -3
mkdir -p "$(dirname "$out")"
sox -q "$work/wide.wav" -C 2 "$out"
echo "$out: $(soxi -D "$out") s"
