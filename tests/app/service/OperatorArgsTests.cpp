#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/AppModelFailure.hpp"
#include "app/service/OperatorArgs.hpp"

using namespace tavorin;
using test::refusal;

namespace {
OperatorCommand cmd(std::map<std::string, std::string> args) { return OperatorCommand{"verb", std::move(args)}; }
}  // namespace

TEST(OperatorArgs, NumbersComeFromTheWholeTextWithoutSpaces) {
  auto c = cmd({{"at", "1.5"}, {"neg", "-2"}, {"exp", "1e1"}, {"plus", "+3"}, {"abc", "abc"}, {"sp", " 1"},
                {"tail", "1 "}, {"inf", "inf"}, {"empty", ""}});
  OperatorArgs a(c);
  EXPECT_EQ(a.number("at"), 1.5);
  EXPECT_EQ(a.number("neg"), -2.0);
  EXPECT_EQ(a.number("exp"), 10.0);
  EXPECT_EQ(a.number("plus"), 3.0);
  EXPECT_EQ(a.number("empty"), std::nullopt);  // empty counts as left out
  EXPECT_EQ(a.number("missing"), std::nullopt);
  EXPECT_EQ(refusal([&] { a.number("abc"); }), "'abc' is not a number for abc");
  EXPECT_EQ(refusal([&] { a.number("sp"); }), "' 1' is not a number for sp");
  EXPECT_EQ(refusal([&] { a.number("tail"); }), "'1 ' is not a number for tail");
  EXPECT_EQ(refusal([&] { a.number("inf"); }), "'inf' is not a number for inf");
}

TEST(OperatorArgs, FractionsAreTrimmedFirst) {
  auto c = cmd({{"x", "  0.25 "}, {"y", "half"}});
  OperatorArgs a(c);
  EXPECT_EQ(a.fraction("x"), 0.25);
  EXPECT_EQ(refusal([&] { a.fraction("y"); }), "'half' is not a number for y");
}

TEST(OperatorArgs, CountsAreWholeNumbers) {
  auto c = cmd({{"n", "3"}, {"f", "3.5"}});
  OperatorArgs a(c);
  EXPECT_EQ(a.integer("n"), 3);
  EXPECT_EQ(refusal([&] { a.integer("f"); }), "'3.5' is not a number for f");
}

TEST(OperatorArgs, IdListsDropEmptyPiecesAndKeepOrder) {
  auto c = cmd({{"ids", " l1 , ,l3"}, {"one", "l9"}, {"commas", ",,,"}});
  OperatorArgs a(c);
  EXPECT_EQ(a.idList("ids"), (std::vector<std::string>{"l1", "l3"}));
  EXPECT_EQ(a.idList("one"), (std::vector<std::string>{"l9"}));
  EXPECT_TRUE(a.idList("commas").empty());
  EXPECT_TRUE(a.idList("missing").empty());
}

TEST(OperatorArgs, SwitchesAndLenientTruth) {
  auto c = cmd({{"on", "1"}, {"off", "0"}, {"odd", "maybe"}, {"f", "FALSE"}, {"z", "0"}, {"y", "whatever"}});
  OperatorArgs a(c);
  EXPECT_EQ(a.flag("on"), true);
  EXPECT_EQ(a.flag("off"), false);
  EXPECT_EQ(a.flag("missing"), std::nullopt);
  EXPECT_THROW(a.flag("odd"), AppModelFailure);
  EXPECT_EQ(a.lenient("f"), false);
  EXPECT_EQ(a.lenient("z"), false);
  EXPECT_EQ(a.lenient("y"), true);
  EXPECT_EQ(a.lenient("missing"), std::nullopt);
}

TEST(OperatorArgs, PathsExpandTheTilde) {
  test::ScopedEnv home("HOME", "/home/ada");
  auto c = cmd({{"dir", "~/Tavorin/demo"}, {"abs", "/x/y"}});
  OperatorArgs a(c);
  EXPECT_EQ(a.path("dir"), std::filesystem::path("/home/ada/Tavorin/demo"));
  EXPECT_EQ(a.path("abs"), std::filesystem::path("/x/y"));
}
