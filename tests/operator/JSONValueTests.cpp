#include <gtest/gtest.h>

#include "operator/JSONValue.hpp"
#include "operator/OperatorCommand.hpp"

using namespace tavorin;

TEST(JSONValue, DecodesInTheFixedOrderOfCases) {
  EXPECT_EQ(JSONValue::decode("null").kind(), JSONValue::Kind::null);
  EXPECT_EQ(JSONValue::decode("true").kind(), JSONValue::Kind::boolean);
  EXPECT_EQ(JSONValue::decode("1").kind(), JSONValue::Kind::integer);
  // A whole number written with a fraction is an int; a true fraction stays a double.
  EXPECT_EQ(JSONValue::decode("1.0"), JSONValue(1));
  EXPECT_EQ(JSONValue::decode("1e2"), JSONValue(100));
  EXPECT_EQ(JSONValue::decode("1.5"), JSONValue(1.5));
  EXPECT_EQ(JSONValue::decode("1e300").kind(), JSONValue::Kind::real);
  EXPECT_EQ(JSONValue::decode("\"x\""), JSONValue("x"));
  EXPECT_EQ(JSONValue::decode("[1,\"a\"]"), JSONValue::array({1, "a"}));
  EXPECT_EQ(JSONValue::decode("{\"a\":{\"b\":[]}}"), JSONValue::object({{"a", JSONValue::object({{"b", JSONValue::array({})}})}}));
  EXPECT_THROW(JSONValue::decode("{"), std::runtime_error);
  EXPECT_THROW(JSONValue::decode(""), std::runtime_error);
}

TEST(JSONValue, TrueIsNeverAnInt) {
  const JSONValue t = JSONValue::decode("true");
  EXPECT_FALSE(t.intValue());
  EXPECT_FALSE(t.doubleValue());
  EXPECT_EQ(t.boolValue(), true);
  EXPECT_FALSE(JSONValue(1).boolValue());
}

TEST(JSONValue, AccessorsYieldPayloadOrNothing) {
  EXPECT_EQ(JSONValue(3).doubleValue(), 3.0);  // an int widens
  EXPECT_EQ(JSONValue(2.5).intValue(), std::nullopt);
  EXPECT_EQ(JSONValue("s").stringValue(), "s");
  EXPECT_EQ(JSONValue(1).stringValue(), std::nullopt);
  const JSONValue o = JSONValue::object({{"k", 1}});
  ASSERT_NE(o["k"], nullptr);
  EXPECT_EQ(*o["k"], JSONValue(1));
  EXPECT_EQ(o["missing"], nullptr);
  EXPECT_EQ(JSONValue::array({1})["k"], nullptr);  // subscript on a non-object
  EXPECT_EQ(JSONValue(1).arrayValue(), nullptr);
}

TEST(JSONValue, EqualityIsStructural) {
  EXPECT_EQ(JSONValue::decode("{\"a\":[1,2],\"b\":null}"), JSONValue::decode("{ \"b\" : null, \"a\" : [1, 2] }"));
  EXPECT_NE(JSONValue(1), JSONValue(1.0));  // different cases are different values
  EXPECT_NE(JSONValue::decode("[1,2]"), JSONValue::decode("[2,1]"));
}

TEST(JSONValue, SecondsRoundToHundredths) {
  EXPECT_EQ(JSONValue::seconds(1.234), JSONValue(1.23));
  EXPECT_EQ(JSONValue::seconds(1.235000001), JSONValue(1.24));
  EXPECT_EQ(JSONValue::seconds(-0.004).doubleValue(), -0.0);
  EXPECT_EQ(JSONValue::seconds(2).kind(), JSONValue::Kind::real);
}

TEST(JSONValue, EncodesTheBareValue) {
  EXPECT_EQ(JSONValue("a/b").encode().front(), '"');
  EXPECT_EQ(JSONValue(7).encode(), "7");
  EXPECT_EQ(JSONValue().encode(), "null");
  EXPECT_EQ(JSONValue::object({{"b", 1}, {"a", true}}).encode(), "{\"a\":true,\"b\":1}");
  // A double round-trips through its text.
  const double d = 0.1 + 0.2;
  EXPECT_EQ(JSONValue::decode(JSONValue(d).encode()).doubleValue(), d);
  EXPECT_THROW(JSONValue(std::string("\xff")).encode(), std::runtime_error);
  // Forward slashes go out escaped, in keys and values alike, and read back either way.
  const JSONValue path = JSONValue::object({{"a/b", "/tmp/x"}});
  EXPECT_EQ(path.encode(), "{\"a\\/b\":\"\\/tmp\\/x\"}");
  EXPECT_EQ(JSONValue::decode(path.encode()), path);
  EXPECT_EQ(*JSONValue::decode("\"/tmp\"").stringValue(), "/tmp");
}

TEST(OperatorCommand, AnEmptyArgumentIsAMissingOne) {
  OperatorCommand c{"edit", {{"id", "l1"}, {"value", ""}}};
  EXPECT_EQ(c.arg("id"), "l1");
  EXPECT_EQ(c.arg("value"), std::nullopt);
  EXPECT_EQ(c.arg("absent"), std::nullopt);
}
