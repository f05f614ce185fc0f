#include <ctime>

#include "adapter_test.h"

namespace {

class GetDeviceTimestamp : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(GetDeviceTimestamp, FillsTheResponseAndPublishesThatObject) {
  response_["kept"] = "yes";
  const auto before = time(nullptr);
  EXPECT_TRUE(CloudSends("get_device_timestamp", R"({"type":"get_device_timestamp"})"));
  const auto after = time(nullptr);
  ASSERT_TRUE(response_["timestamp"].isInt64());
  EXPECT_GE(response_["timestamp"].asInt64(), before);
  EXPECT_LE(response_["timestamp"].asInt64(), after);
  EXPECT_EQ(PublishedHead(), "get_device_timestamp 23");
  EXPECT_EQ(PublishedPayload(), response_);
  EXPECT_EQ(response_["kept"], "yes");
}

TEST_F(GetDeviceTimestamp, ChecksPayloadTypeAndVersion) {
  EXPECT_FALSE(CloudSends("get_device_timestamp", "[]"));
  EXPECT_EQ(Logged(4, "invalid payload, not json object"), 1U);
  EXPECT_FALSE(CloudSends("get_device_timestamp", R"({"type":"get_sn"})"));
  EXPECT_FALSE(CloudSends("get_device_timestamp", R"({"type":"get_device_timestamp"})", "1.1"));
  EXPECT_TRUE(response_.isNull());
}

}  // namespace
