#pragma once
// What the speech engine asks of a phonemiser: text in, phoneme string out.
#include <string>

namespace tavorin {

class Phonemizer {
public:
    virtual ~Phonemizer() = default;
    virtual std::string phonemize(const std::string& text) = 0;
};

} // namespace tavorin
