#pragma once
// A guesser of phonemes for words that no dictionary holds (a trained model), which the
// English phonemiser asks before it spells a word letter by letter.
#include <optional>
#include <string>

namespace tavorin {

class G2PModel {
public:
    virtual ~G2PModel() = default;
    // The phonemes of a lower-case word, or nothing when it has no answer.
    virtual std::optional<std::string> predict(const std::string& word) = 0;
};

} // namespace tavorin
