#include <gtest/gtest.h>

#include <limits>

#include "speech/EnglishNum2Word.hpp"

using tavorin::EnglishNum2Word;

TEST(EnglishNum2Word, CardinalsAcrossEveryTable) {
    const EnglishNum2Word n;
    EXPECT_EQ(n.toCardinal(0), "zero");
    EXPECT_EQ(n.toCardinal(13), "thirteen");
    EXPECT_EQ(n.toCardinal(20), "twenty");
    EXPECT_EQ(n.toCardinal(21), "twenty-one");
    EXPECT_EQ(n.toCardinal(99), "ninety-nine");
    EXPECT_EQ(n.toCardinal(100), "one hundred");
    EXPECT_EQ(n.toCardinal(101), "one hundred and one");
    EXPECT_EQ(n.toCardinal(1000), "one thousand");
    EXPECT_EQ(n.toCardinal(1005), "one thousand and five");
    EXPECT_EQ(n.toCardinal(2345), "two thousand, three hundred and forty-five");
    EXPECT_EQ(n.toCardinal(1000000), "one million");
    EXPECT_EQ(n.toCardinal(3000000000LL), "three billion");
    EXPECT_EQ(n.toCardinal(-5), "minus five");
    // The largest value spells without overflow, down to its last digits.
    const std::string max = n.toCardinal(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(max.rfind("nine quintillion", 0), 0u) << max;
    EXPECT_NE(max.find("eight hundred and seven"), std::string::npos) << max;
    EXPECT_EQ(n.toCardinal(std::numeric_limits<std::int64_t>::min()).rfind("minus nine quintillion", 0), 0u);
}

TEST(EnglishNum2Word, OrdinalsKeepTheTableAsItIs) {
    const EnglishNum2Word n;
    EXPECT_FALSE(n.toOrdinal(0));
    EXPECT_FALSE(n.toOrdinal(-3));
    EXPECT_EQ(n.toOrdinal(1), "first");
    EXPECT_EQ(n.toOrdinal(21), "twenty-first");
    EXPECT_EQ(n.toOrdinal(20), "twentieth");
    EXPECT_EQ(n.toOrdinal(103), "one hundred and third");
    EXPECT_EQ(n.toOrdinal(1000000), "one millionth");
    // Not in the table of irregular forms, so they take a plain "th".
    EXPECT_EQ(n.toOrdinal(8), "eightth");
    EXPECT_EQ(n.toOrdinal(12), "twelveth");
}

TEST(EnglishNum2Word, YearsAndDecimals) {
    const EnglishNum2Word n;
    EXPECT_EQ(n.toYear(1905), "nineteen oh-five");
    EXPECT_EQ(n.toYear(1900), "nineteen hundred");
    EXPECT_EQ(n.toYear(1984), "nineteen eighty-four");
    EXPECT_EQ(n.toYear(2024), "twenty twenty-four");
    EXPECT_EQ(n.toYear(44), "forty-four");
    EXPECT_EQ(n.toYear(-44), "forty-four BC");
    EXPECT_EQ(n.toYear(1984, "AD", true), "one thousand, nine hundred and eighty-four AD");
    EXPECT_EQ(n.toDecimal("3.14"), "three point one four");
    EXPECT_EQ(n.toDecimal("-0.05"), "minus zero point zero five");
    EXPECT_EQ(n.toDecimal("99999999999999999999.5"), "nine nine nine nine nine nine nine nine nine nine nine nine nine nine nine nine nine nine nine nine point five");
}
