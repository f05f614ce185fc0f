#include "adapter_test.h"

namespace {

class Subscription : public AdapterTest {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(Subscription, OfResultsListensToTheirTopic) {
  EXPECT_TRUE(adapter_->SubscribeMessage("ivs_result"));
  EXPECT_EQ(platform().listened_topics.count("BUS_SRV_IVS_RESULT"), 1U);
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"7 SubscribeMessage: name= ivs_result",
                                      "7  message:[ivs_result] listen BUS_SRV_IVS_RESULT ret=0"}));
}

TEST_F(Subscription, WithinWhichSomethingIsThrownIsRefused) {
  platform().throw_on_request = "BUS_GET_IVS_INFO";
  EXPECT_FALSE(adapter_->SubscribeMessage("offline_record"));
  EXPECT_EQ(LoggedBy("SubscribeMessage", 3, "caught: thrown by the bus"), 1U);
}

TEST_F(Subscription, OfLaneControlListensToItsTopic) {
  EXPECT_TRUE(adapter_->SubscribeMessage("lanectrl_result"));
  EXPECT_EQ(platform().listened_topics.count("BUS_SRV_LANECTRL_RESULT"), 1U);
  EXPECT_EQ(Logged(7, " message:[lanectrl_result] listen BUS_SRV_LANECTRL_RESULT ret=0"), 1U);
}

TEST_F(Subscription, OfInputsListensToOneTopicAndLogsAnother) {
  EXPECT_TRUE(adapter_->SubscribeMessage("gpio_in"));
  EXPECT_EQ(platform().listened_topics.count("EVT_SRV_EXTERNAL_TRIGGER"), 1U);
  EXPECT_EQ(LoggedBy("SubscribeMessage", 7, " message:[gpio_in] listen EVS_IVS_TRIGGER ret=0"), 1U);
}

TEST_F(Subscription, OfSerialInputListensToItsTopic) {
  EXPECT_TRUE(adapter_->SubscribeMessage("serial_data"));
  EXPECT_EQ(platform().listened_topics.count("EVS_RS485_READ"), 1U);
  EXPECT_EQ(Logged(7, " message:[serial_data] listen EVS_RS485_READ ret=0"), 1U);
}

TEST_F(Subscription, IsRefusedWhenListeningFails) {
  platform().listen_result = 3;
  EXPECT_FALSE(adapter_->SubscribeMessage("ivs_result"));
  EXPECT_EQ(Logged(7, " message:[ivs_result] listen BUS_SRV_IVS_RESULT ret=3"), 1U);
}

TEST_F(Subscription, OfSnapshotsIsConfirmedOnTheConsole) {
  bool subscribed = false;
  EXPECT_EQ(Console([&] { subscribed = adapter_->SubscribeMessage("snapshot"); }),
            "\033[31m message:[snapshot] SubscribeMessage success. \033[0m \n");
  EXPECT_TRUE(subscribed);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"7 SubscribeMessage: name= snapshot"}));
}

TEST_F(Subscription, OfTheOfflineCountPublishesItAtOnce) {
  Answers("BUS_GET_IVS_INFO", R"({"body":{"offline_count":4}})");
  bool subscribed = false;
  EXPECT_EQ(
      Console([&] { subscribed = adapter_->SubscribeMessage("offline_record"); }),
      "\033[31m SUB_OFFLINE_RECORD:{\n\t\"body\" : \n\t{\n\t\t\"offline_record\" : 4\n\t}\n}\n"
      " \033[0m \n");
  EXPECT_TRUE(subscribed);
  EXPECT_EQ(Logged(7, "message:[offline_record] SubscribeMessage success."), 1U);
  EXPECT_EQ(BusHeard(),
            "BUS_GET_IVS_INFO {\n\t\"type\" : \"STP_GET_MQTT_OFFLINE_COUNT\"\n}\n timeout=5000");
  EXPECT_EQ(Published(), R"(offline_record 17 {"body":{"offline_record":4}})");
}

TEST_F(Subscription, OfAnswersOnlyIsAccepted) {
  for (const char* name :
       {"bind_device_list", "agent_rtsp_url", "agent_talkback_port", "get_image_by_id",
        "white_list_operator", "get_device_timestamp", "wl_check_status", "get_sn",
        "get_last_result", "get_io_out_status", "get_ad_voice", "get_lcd_bright"}) {
    ForgetLogs();
    EXPECT_TRUE(adapter_->SubscribeMessage(name)) << name;
    EXPECT_EQ(LogLines(),
              (std::vector<std::string>{std::string("7 SubscribeMessage: name= ") + name}));
  }
}

TEST_F(Subscription, OfAnyOtherNameIsRefused) {
  for (const char* name : {"set_time", "reboot_dev", "check_offline_record", "gpio_out",
                           "IVS_RESULT", "ivs_result ", "", "unheard_of"}) {
    EXPECT_FALSE(adapter_->SubscribeMessage(name)) << name;
  }
}

TEST_F(Subscription, EndsWithTheTopic) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"ivs_result", "BUS_SRV_IVS_RESULT"},
      {"lanectrl_result", "BUS_SRV_LANECTRL_RESULT"},
      {"gpio_in", "EVT_SRV_EXTERNAL_TRIGGER"},
      {"serial_data", "EVS_RS485_READ"}};
  for (const auto& [name, topic] : rows) {
    adapter_->SubscribeMessage(name);
    ForgetLogs();
    platform().removed_topics.clear();
    adapter_->UnsubscribeMessage(name);
    EXPECT_EQ(platform().removed_topics, std::vector<std::string>{topic});
    EXPECT_EQ(LogLines(), std::vector<std::string>{"7 SubscribeMessage: name= " + name});
    EXPECT_EQ(LoggedBy("UnsubscribeMessage", 7, "SubscribeMessage: name= " + name), 1U);
  }
}

TEST_F(Subscription, EndOfANameWithoutATopicDoesNothing) {
  for (const char* name : {"snapshot", "offline_record", "set_time", "unheard_of"}) {
    adapter_->UnsubscribeMessage(name);
  }
  EXPECT_TRUE(platform().removed_topics.empty());
}

class SubscriptionWithoutBus : public AdapterTest {};

TEST_F(SubscriptionWithoutBus, IsRefusedWithoutALine) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(adapter_->SubscribeMessage("ivs_result"));
  EXPECT_FALSE(adapter_->SubscribeMessage("get_sn"));
  adapter_->UnsubscribeMessage("ivs_result");
  EXPECT_TRUE(LogLines().empty());
}

}  // namespace
