#pragma once
// Spells numbers in English words, for the lexicon to read.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavorin {

class EnglishNum2Word {
public:
    EnglishNum2Word();

    std::string toCardinal(std::int64_t n) const;
    std::optional<std::string> toOrdinal(std::int64_t value) const;
    // The digits after the point are read one by one, as written.
    std::string toDecimal(const std::string& value) const;
    std::string toYear(std::int64_t value, const std::string& suffix = "", bool longVal = false) const;

    const std::string negWord = "minus ";
    const std::string pointWord = "point";

private:
    std::vector<std::pair<std::int64_t, std::string>> midNumWords;
    std::vector<std::string> lowNumWords;
    std::map<std::string, std::string> ords;
    std::map<std::int64_t, std::string> cards;
};

} // namespace tavorin
