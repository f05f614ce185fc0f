#include "adapter_test.h"

namespace {

class GetSn : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(GetSn, PublishesTheSerialNumber) {
  EXPECT_TRUE(CloudSends("get_sn", R"({"type":"get_sn"})"));
  EXPECT_EQ(Published(), R"(get_sn 25 {"value":"SN0001"})");
}

TEST_F(GetSn, AsksTheDeviceEachTime) {
  platform().sn = "SN0002";
  EXPECT_TRUE(CloudSends("get_sn", R"({"type":"get_sn"})"));
  EXPECT_EQ(Published(), R"(get_sn 25 {"value":"SN0002"})");
}

TEST_F(GetSn, LeavesTheResponseAsItIs) {
  response_["kept"] = true;
  CloudSends("get_sn", R"({"type":"get_sn"})");
  EXPECT_EQ(Compact(response_), R"({"kept":true})");
  Published();
}

}  // namespace
