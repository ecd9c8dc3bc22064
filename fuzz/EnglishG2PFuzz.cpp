// Arbitrary bytes through the English phonemiser: any text gives a phoneme string, never a
// crash, a hang or undefined behaviour. Both varieties, with and without preprocessing.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "speech/EnglishG2P.hpp"

namespace {
std::unique_ptr<tavorin::EnglishG2P> us, gb;
}

// The dictionaries load once, before the clock of the first input starts.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  us = std::make_unique<tavorin::EnglishG2P>(false);
  gb = std::make_unique<tavorin::EnglishG2P>(true);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    us->phonemize(std::string());
    return 0;
  }
  // The first byte picks the variety and whether links and symbols are preprocessed.
  const std::uint8_t mode = data[0];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  auto& g2p = (mode & 1) ? *gb : *us;
  auto [phonemes, tokens] = g2p.phonemize(text, (mode & 2) == 0);
  (void)phonemes;
  (void)tokens;
  return 0;
}
