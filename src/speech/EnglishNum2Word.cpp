#include "speech/EnglishNum2Word.hpp"

#include <limits>

namespace tavorin {

EnglishNum2Word::EnglishNum2Word()
    : midNumWords{{1000, "thousand"}, {100, "hundred"}, {90, "ninety"}, {80, "eighty"}, {70, "seventy"},
                  {60, "sixty"},      {50, "fifty"},    {40, "forty"},  {30, "thirty"}},
      lowNumWords{"twenty",   "nineteen", "eighteen", "seventeen", "sixteen", "fifteen", "fourteen",
                  "thirteen", "twelve",   "eleven",   "ten",       "nine",    "eight",   "seven",
                  "six",      "five",     "four",     "three",     "two",     "one",     "zero"},
      ords{{"one", "first"}, {"two", "second"}, {"three", "third"}, {"four", "fourth"}, {"five", "fifth"},
           {"six", "sixth"}} {
    for (std::size_t i = 0; i < lowNumWords.size(); ++i) cards[20 - static_cast<std::int64_t>(i)] = lowNumWords[i];
    for (const auto& [n, w] : midNumWords) cards[n] = w;
    static const char* prefixes[] = {"m", "b", "tr", "quadr", "quint", "sext", "sept", "oct", "non", "dec"};
    std::int64_t power = 1000000;
    for (std::size_t i = 0; i < std::size(prefixes); ++i) {
        cards[power] = std::string(prefixes[i]) + "illion";
        if (power > std::numeric_limits<std::int64_t>::max() / 1000) break;
        power *= 1000;
    }
}

std::string EnglishNum2Word::toCardinal(std::int64_t n) const {
    if (n < 0) {
        // The most negative value has no positive twin; its magnitude is spelled from the unsigned value.
        if (n == std::numeric_limits<std::int64_t>::min()) {
            std::string max = toCardinal(std::numeric_limits<std::int64_t>::max());  // ends "...and seven"
            return negWord + max.substr(0, max.size() - 5) + "eight";
        }
        return negWord + toCardinal(-n);
    }
    if (n < 21) return lowNumWords[static_cast<std::size_t>(20 - n)];
    if (n < 100) {
        std::string out = cards.at(n / 10 * 10);
        if (n % 10) out += "-" + lowNumWords[static_cast<std::size_t>(20 - n % 10)];
        return out;
    }
    if (n < 1000) {
        std::string out = lowNumWords[static_cast<std::size_t>(20 - n / 100)] + " hundred";
        if (n % 100) out += " and " + toCardinal(n % 100);
        return out;
    }
    auto it = cards.upper_bound(n);
    --it;
    const std::int64_t key = it->first;
    std::string out = toCardinal(n / key) + " " + it->second;
    const std::int64_t rest = n % key;
    if (rest) out += (rest < 100 ? " and " : ", ") + toCardinal(rest);
    return out;
}

std::optional<std::string> EnglishNum2Word::toOrdinal(std::int64_t value) const {
    if (value < 1) return std::nullopt;
    const std::string card = toCardinal(value);
    const auto space = card.rfind(' ');
    std::string head = space == std::string::npos ? "" : card.substr(0, space + 1);
    std::string last = space == std::string::npos ? card : card.substr(space + 1);
    const auto dash = last.rfind('-');
    std::string lead = dash == std::string::npos ? "" : last.substr(0, dash + 1);
    std::string part = dash == std::string::npos ? last : last.substr(dash + 1);
    for (auto& c : part) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (auto o = ords.find(part); o != ords.end()) part = o->second;
    else if (!part.empty() && part.back() == 'y') part = part.substr(0, part.size() - 1) + "ieth";
    else part += "th";
    return head + lead + part;
}

std::string EnglishNum2Word::toDecimal(const std::string& value) const {
    std::string_view v = value;
    std::string out;
    if (!v.empty() && (v[0] == '-' || v[0] == '+')) {
        if (v[0] == '-') out = negWord;
        v.remove_prefix(1);
    }
    const auto dot = v.find('.');
    const std::string_view whole = v.substr(0, dot);
    std::int64_t w = 0;
    bool huge = false;
    for (char c : whole) {
        if (c < '0' || c > '9') continue;
        if (w > (std::numeric_limits<std::int64_t>::max() - 9) / 10) { huge = true; break; }
        w = w * 10 + (c - '0');
    }
    if (huge) {
        // Too long for a cardinal: read the whole part digit by digit.
        std::string digits;
        for (char c : whole)
            if (c >= '0' && c <= '9') digits += (digits.empty() ? "" : " ") + lowNumWords[static_cast<std::size_t>(20 - (c - '0'))];
        out += digits;
    } else {
        out += toCardinal(w);
    }
    out += " " + pointWord;
    if (dot != std::string_view::npos)
        for (char c : v.substr(dot + 1))
            if (c >= '0' && c <= '9') out += " " + lowNumWords[static_cast<std::size_t>(20 - (c - '0'))];
    return out;
}

std::string EnglishNum2Word::toYear(std::int64_t value, const std::string& suffix, bool longVal) const {
    std::string sfx = suffix;
    if (value < 0) {
        value = value == std::numeric_limits<std::int64_t>::min() ? std::numeric_limits<std::int64_t>::max() : -value;
        sfx = "BC";
    }
    const std::int64_t high = value / 100, low = value % 100;
    std::string out;
    if (high == 0 || longVal) out = toCardinal(value);
    else if (low == 0) out = toCardinal(high) + " hundred";
    else if (low < 10) out = toCardinal(high) + " oh-" + toCardinal(low);
    else out = toCardinal(high) + " " + toCardinal(low);
    if (!sfx.empty()) out += " " + sfx;
    return out;
}

} // namespace tavorin
