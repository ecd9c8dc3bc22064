#include <gtest/gtest.h>

#include "platform/DevToolsMessage.hpp"

using namespace tavorin;

TEST(DevToolsMessage, FramesAreCutAtEachNulAndTheRestWaits) {
  constexpr char stream[] = "{\"id\":1}\0{\"method\":\"A\"}\0{\"id\":";
  std::string buffer(stream, sizeof stream - 1);
  EXPECT_EQ(DevToolsMessage::frames(buffer), (std::vector<std::string>{"{\"id\":1}", "{\"method\":\"A\"}"}));
  EXPECT_EQ(buffer, "{\"id\":");
  buffer += std::string("2}\0", 3);
  EXPECT_EQ(DevToolsMessage::frames(buffer), std::vector<std::string>{"{\"id\":2}"});
  EXPECT_TRUE(buffer.empty());
}

TEST(DevToolsMessage, AnswersEventsAndRefusalsAreToldApart) {
  const auto answer = DevToolsMessage::decode(R"({"id":7,"result":{"frameId":"F"},"sessionId":"S"})");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->id, 7);
  EXPECT_EQ(answer->result, R"({"frameId":"F"})");
  EXPECT_EQ(answer->sessionId, "S");
  EXPECT_FALSE(answer->error);

  const auto event = DevToolsMessage::decode(R"({"method":"Page.loadEventFired","params":{"timestamp":1.5}})");
  ASSERT_TRUE(event);
  EXPECT_FALSE(event->id);
  EXPECT_EQ(event->method, "Page.loadEventFired");

  EXPECT_EQ(DevToolsMessage::decode(R"({"id":3,"error":{"code":-32000,"message":"No target"}})")->error,
            "No target");
  EXPECT_EQ(DevToolsMessage::decode(R"({"id":3,"error":"odd"})")->error, "an error");
  // What is no object is no message; a wrong type is passed over, never trusted.
  for (const char* bad : {"", "[1]", "nul", "{\"id\":", "42"}) EXPECT_FALSE(DevToolsMessage::decode(bad)) << bad;
  EXPECT_FALSE(DevToolsMessage::decode(R"({"id":"7"})")->id);
}
