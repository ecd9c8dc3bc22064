// Arbitrary bytes through the English phonemiser: any text gives a phoneme string, never a
// crash, a hang or undefined behaviour. Both varieties, with and without preprocessing.
#include <cstddef>
#include <cstdint>
#include <string>

#include "speech/EnglishG2P.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static tavorin::EnglishG2P us(false);
    static tavorin::EnglishG2P gb(true);
    if (size == 0) {
        us.phonemize(std::string());
        return 0;
    }
    // The first byte picks the variety and whether links and symbols are preprocessed.
    const std::uint8_t mode = data[0];
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    auto& g2p = (mode & 1) ? gb : us;
    auto [phonemes, tokens] = g2p.phonemize(text, (mode & 2) == 0);
    (void)phonemes;
    (void)tokens;
    return 0;
}
