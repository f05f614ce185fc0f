#include "cloud_agent/requests/response_memory.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

using std::chrono::minutes;
using TimePoint = ResponseMemory::TimePoint;

Request WithKey(const std::string& key) {
  Request request;
  request.name = "gpio_out";
  request.version = "1.0";
  request.payload["type"] = "gpio_out";
  request.idempotency_key = key;
  return request;
}

class ResponseMemoryTest : public testing::Test {
 protected:
  void Remember(const std::string& key, const std::string& response, TimePoint now = TimePoint()) {
    memory_.Remember(WithKey(key), Json::Value(response), now);
  }

  /// The response known of a key.
  std::string Known(const std::string& key, TimePoint now = TimePoint()) {
    const auto known = memory_.Find(WithKey(key), now);
    return known ? known->response.asString() : "nothing";
  }

  ResponseMemory memory_;
};

TEST_F(ResponseMemoryTest, KnowsTheResponseOfAKey) {
  EXPECT_EQ(Known("k"), "nothing");
  Remember("k", "r");
  EXPECT_EQ(Known("k"), "r");
  EXPECT_EQ(Known("l"), "nothing");
}

TEST_F(ResponseMemoryTest, TellsAnotherRequestOfTheSameKeyApart) {
  Remember("k", "r");
  EXPECT_TRUE(memory_.Find(WithKey("k"), TimePoint())->is_same_request);
  Request other = WithKey("k");
  other.payload["body"] = 1;
  EXPECT_FALSE(memory_.Find(other, TimePoint())->is_same_request);
  other = WithKey("k");
  other.name = "set_time";
  EXPECT_FALSE(memory_.Find(other, TimePoint())->is_same_request);
}

TEST_F(ResponseMemoryTest, ForgetsAfterTenMinutes) {
  Remember("k", "r");
  EXPECT_EQ(Known("k", TimePoint(minutes(10)) - std::chrono::nanoseconds(1)), "r");
  EXPECT_EQ(Known("k", TimePoint(minutes(10))), "nothing");
  Remember("k", "s", TimePoint(minutes(10)));
  EXPECT_EQ(Known("k", TimePoint(minutes(11))), "s");
}

TEST_F(ResponseMemoryTest, RemembersNothingWithoutAKey) {
  Remember("", "r");
  EXPECT_EQ(Known(""), "nothing");
}

TEST_F(ResponseMemoryTest, ForgetsTheOldestOfTooMany) {
  for (std::size_t i = 0; i <= ResponseMemory::kMaxResponses; ++i) {
    Remember("k" + std::to_string(i), "r");
  }
  EXPECT_EQ(Known("k0"), "nothing");
  EXPECT_EQ(Known("k1"), "r");
}

TEST_F(ResponseMemoryTest, ForgetsTheOldestOfTooMuch) {
  Remember("a", std::string(ResponseMemory::kMaxBytes / 2, 'x'));
  Remember("b", "small");
  Remember("c", std::string(ResponseMemory::kMaxBytes / 2, 'x'));
  EXPECT_EQ(Known("a"), "nothing");
  EXPECT_EQ(Known("b"), "small");
  Remember("d", std::string(ResponseMemory::kMaxBytes, 'x'));
  EXPECT_EQ(Known("b"), "nothing");
  EXPECT_EQ(Known("d"), "nothing");
}

}  // namespace
}  // namespace agent
