#include <gtest/gtest.h>

#include "kit/RedirectRequest.hpp"

using namespace tavorin;

TEST(RedirectRequest, ReadsTheQueryOfTheRequestLineOnly) {
  const auto r = RedirectRequest::parse(
      "GET /?code=4%2F0Ab+c&state=st8&scope=a%20b&state=second#frag HTTP/1.1\r\nHost: x?code=no\r\n\r\n");
  ASSERT_TRUE(r);
  EXPECT_EQ(r->item("code"), "4/0Ab c");
  EXPECT_EQ(r->item("state"), "st8");  // a repeated key cannot overrule the first
  EXPECT_EQ(r->item("scope"), "a b");
  EXPECT_EQ(r->query.size(), 3u);

  const auto bare = RedirectRequest::parse("GET /?code&=v&&error= HTTP/1.1\r\n");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->item("code"), "");
  EXPECT_EQ(bare->item(""), "v");
  EXPECT_EQ(bare->item("error"), "");
  EXPECT_EQ(RedirectRequest::parse("GET / HTTP/1.1\r\n")->query.size(), 0u);
}

TEST(RedirectRequest, MalformedInputIsRefusedOrKeptAsWritten) {
  EXPECT_FALSE(RedirectRequest::parse(""));
  EXPECT_FALSE(RedirectRequest::parse("GET /?code=x"));
  EXPECT_FALSE(RedirectRequest::parse("GET\r\n /?code=x HTTP/1.1"));  // the line ends before its target
  EXPECT_EQ(RedirectRequest::decode("100%"), "100%");
  EXPECT_EQ(RedirectRequest::decode("%4"), "%4");
  EXPECT_EQ(RedirectRequest::decode("%zz%41"), "%zzA");
  EXPECT_EQ(RedirectRequest::decode("%-1"), "%-1");
  EXPECT_EQ(RedirectRequest::decode("%00"), std::string(1, '\0'));
}
