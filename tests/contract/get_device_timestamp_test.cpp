#include <cstdint>
#include <ctime>

#include "adapter_test.h"

namespace {

int64_t g_now_s = 0;  ///< what the C library says the time is; 0: the machine's

int64_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return g_now_s != 0 ? g_now_s : now.tv_sec;
}

}  // namespace

// The program's symbols come before those of the C library, for the plug-in as well.
extern "C" time_t time(time_t* /*result*/) noexcept { return static_cast<time_t>(Now()); }
/// time() where `long` has 32 bits and the time has 64.
extern "C" int64_t __time64(int64_t* /*result*/) noexcept { return Now(); }

namespace {

class GetDeviceTimestamp : public AdapterTest {
 protected:
  void SetUp() override {
    g_now_s = 0;
    Start();
  }
};

TEST_F(GetDeviceTimestamp, GoesOnAfter2038) {
  g_now_s = 4102444800;
  EXPECT_TRUE(CloudSends("get_device_timestamp", R"({"type":"get_device_timestamp"})"));
  EXPECT_EQ(Published(), R"(get_device_timestamp 23 {"timestamp":4102444800})");
}

TEST_F(GetDeviceTimestamp, FillsTheResponseAndPublishesThatObject) {
  response_["kept"] = "yes";
  const int64_t before = Now();
  EXPECT_TRUE(CloudSends("get_device_timestamp", R"({"type":"get_device_timestamp"})"));
  const int64_t after = Now();
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
