#include <gtest/gtest.h>

#include "operator/OperatorWire.hpp"

using namespace tavorin;
namespace W = tavorin::OperatorWire;

TEST(OperatorWire, RequestsNeedTokenVerbAndStringArgs) {
  const auto r = W::decodeRequest(R"({"token":"t","command":{"verb":"ping","args":{"a":"1"}}})");
  EXPECT_EQ(r.token, "t");
  EXPECT_EQ(r.command.verb, "ping");
  EXPECT_EQ(r.command.arg("a"), "1");

  for (const char* bad : {"", "   ", "null", "[]", "{}", "42",
                          R"({"token":"t","command":{"verb":"ping"}})",                    // args missing
                          R"({"token":"t","command":{"verb":"ping","args":{"a":1}}})",     // a number
                          R"({"token":"t","command":{"verb":"ping","args":{"a":null}}})",  // a null
                          R"({"token":"t","command":{"verb":"ping","args":[]}})",
                          R"({"token":1,"command":{"verb":"ping","args":{}}})",
                          R"({"command":{"verb":"ping","args":{}}})",
                          R"({"token":"t","command":{"args":{}}})"}) {
    EXPECT_THROW(W::decodeRequest(bad), W::WireError) << bad;
  }
}

TEST(OperatorWire, DecodeTrimsLineEndsOnBothSides) {
  EXPECT_EQ(W::decodeRequest("\r\n{\"token\":\"t\",\"command\":{\"verb\":\"v\",\"args\":{}}}\r\n").command.verb, "v");
  EXPECT_EQ(W::trimNewlines("\n\rx y\r\n"), "x y");
  EXPECT_EQ(W::trimNewlines(" x "), " x ");  // spaces are not line ends
}

TEST(OperatorWire, ResultsLeaveAbsentFieldsOut) {
  EXPECT_EQ(W::encodeLine(OperatorResult::success()), "{\"ok\":true}\n");
  EXPECT_EQ(W::encodeLine(OperatorResult::failure("no")), "{\"error\":\"no\",\"ok\":false}\n");
  const auto back = W::decodeResult(W::encodeLine(OperatorResult::success(JSONValue::object({{"n", 1.5}}))));
  EXPECT_TRUE(back.ok);
  EXPECT_EQ(back, OperatorResult::success(JSONValue::object({{"n", 1.5}})));
  EXPECT_THROW(W::decodeResult("{\"data\":1}"), W::WireError);
}

TEST(OperatorWire, EncodingRefusesBytesThatAreNotUTF8) {
  EXPECT_THROW(W::encodeLine(OperatorResult::failure("\xc3")), W::WireError);
  EXPECT_EQ(W::encodeFailedLine, "{\"ok\":false,\"error\":\"encode failed\"}\n");
}

TEST(OperatorWire, UTF8Validation) {
  EXPECT_TRUE(W::isUTF8("plain"));
  EXPECT_TRUE(W::isUTF8("caf\xc3\xa9 \xe2\x80\x94 \xf0\x9f\x8e\xac"));
  EXPECT_FALSE(W::isUTF8("\xff"));
  EXPECT_FALSE(W::isUTF8("\xc3"));              // cut short at the end
  EXPECT_FALSE(W::isUTF8("\xe2\x80"));
  EXPECT_FALSE(W::isUTF8("\xc0\xaf"));          // overlong
  EXPECT_FALSE(W::isUTF8("\xed\xa0\x80"));      // a surrogate
  EXPECT_FALSE(W::isUTF8("\xf4\x90\x80\x80"));  // past U+10FFFF
}
