#include "adapter_test.h"
#include "contract.h"

namespace {

class MessageNames : public AdapterTest {
 protected:
  void Get() {
    console_ = Console([this] { adapter_->GetMessageNames(requests_, publishes_); });
  }
  std::set<std::string> requests_;
  std::set<std::string> publishes_;
  std::string console_;
};

TEST_F(MessageNames, AreTheTwentyThreeRequests) {
  Start();
  Get();
  EXPECT_EQ(requests_, (std::set<std::string>{"ivs_trigger",
                                              "gpio_out",
                                              "serial_data",
                                              "set_time",
                                              "snapshot",
                                              "reboot_dev",
                                              "check_offline_record",
                                              "bind_device_list",
                                              "agent_rtsp_url",
                                              "agent_talkback_port",
                                              "lanectrl_result_cfg",
                                              "get_image_by_id",
                                              "white_list_operator",
                                              "get_device_timestamp",
                                              "wl_check_status",
                                              "get_sn",
                                              "get_last_result",
                                              "get_io_out_status",
                                              "get_ad_voice",
                                              "set_ad_voice",
                                              "get_lcd_bright",
                                              "set_lcd_bright",
                                              "set_cloud_ctrl"}));
}

TEST_F(MessageNames, AreTheEighteenPublications) {
  Start();
  Get();
  EXPECT_EQ(publishes_, (std::set<std::string>{
                            "ivs_result", "lanectrl_result", "gpio_in", "serial_data", "snapshot",
                            "bind_device_list", "agent_rtsp_url", "agent_talkback_port",
                            "offline_record", "get_image_by_id", "white_list_operator",
                            "get_device_timestamp", "wl_check_status", "get_sn", "get_last_result",
                            "get_io_out_status", "get_ad_voice", "get_lcd_bright"}));
}

TEST_F(MessageNames, AreThoseOfTheContract) {
  Start();
  Get();
  const Json::Value& channels = Contract::Instance().document()["channels"];
  const auto requests = channels["request"]["messages"].getMemberNames();
  const auto publishes = channels["message"]["messages"].getMemberNames();
  EXPECT_EQ(requests_, std::set<std::string>(requests.begin(), requests.end()));
  EXPECT_EQ(publishes_, std::set<std::string>(publishes.begin(), publishes.end()));
}

TEST_F(MessageNames, AreAddedToWhatTheSetsHold) {
  requests_ = {"mine"};
  publishes_ = {"mine too"};
  Start();
  Get();
  EXPECT_EQ(requests_.size(), 24U);
  EXPECT_EQ(publishes_.size(), 19U);
}

TEST_F(MessageNames, AreAnnouncedOnTheConsole) {
  Start();
  Get();
  EXPECT_EQ(console_, "\033[31m GetMessageNames \033[0m \n");
}

TEST_F(MessageNames, AreKnownBeforeInitialize) {
  Create();
  Get();
  EXPECT_EQ(requests_.size(), 23U);
}

}  // namespace
