#include "agent_fixture.h"

namespace agent {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST_F(AgentTest, TakesTheAdapterThroughItsLifeInOrder) {
  Start();
  EXPECT_THAT(calls_, ElementsAre("create", "Initialize", "GetMessageNames", "Start link"));
  calls_.clear();
  agent_->Shutdown();
  EXPECT_THAT(calls_, ElementsAre(R"(Stop link, cameras/CAM1/status retained {"online":false})",
                                  "destroy"));
}

TEST_F(AgentTest, GoesOnWithAnAdapterThatIsNotCompletelyInitialised) {
  adapter_->initialize_result = 1;
  Start();
  EXPECT_THAT(calls_, Contains("Start link"));
}

TEST_F(AgentTest, DoesNotStartWithoutAnAdapter) {
  delete adapter_;
  Agent::Parts parts;
  parts.post = loop_.Post();
  parts.post_after = loop_.PostAfter();
  parts.create_adapter = [] { return AdapterPtr(); };
  parts.now = Now();
  parts.link = &link_;
  EXPECT_FALSE(Agent(options_, std::move(parts)).Start());
  EXPECT_THAT(calls_, ElementsAre());
}

TEST_F(AgentTest, TellsTheAdapterAndTheCloudThatTheLinkStands) {
  Start();
  calls_.clear();
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(calls_, ElementsAre("Connected", "Subscribe get_sn", "Subscribe ivs_result"));
  ASSERT_EQ(link_.sent.size(), 1U);
  EXPECT_THAT(link_.sent[0], HasSubstr("cameras/CAM1/status retained {"));
  EXPECT_THAT(link_.sent[0], HasSubstr(R"("online":true)"));
  EXPECT_EQ(Printed(), "broker connected\n");
}

TEST_F(AgentTest, AssertsThatItIsOnlineAfterEveryConnection) {
  StartAndConnect();
  link_.listener->OnLinkDown("why");
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, Contains(HasSubstr(R"("connections":2)")));
}

TEST_F(AgentTest, ListensToTheDeviceOnlyWhileTheLinkStands) {
  StartAndConnect();
  link_.listener->OnLinkDown("why");
  EXPECT_THAT(calls_, ElementsAre("Unsubscribe get_sn", "Unsubscribe ivs_result", "Disconnected"));
  calls_.clear();
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(calls_, ElementsAre("Connected", "Subscribe get_sn", "Subscribe ivs_result"));
}

TEST_F(AgentTest, SubscribesAgainToWhatTheDeviceRefused) {
  options_.ack_timeout_s = 3600;
  adapter_->refused_name = "ivs_result";
  StartAndConnect();
  loop_.Advance(std::chrono::seconds(5));
  EXPECT_THAT(calls_, ElementsAre("Subscribe ivs_result"));
  adapter_->refused_name.clear();
  loop_.Advance(std::chrono::seconds(5));
  calls_.clear();
  loop_.Advance(std::chrono::seconds(60));
  EXPECT_THAT(calls_, ElementsAre());
}

TEST_F(AgentTest, CountsConnectionsOnWhichNoRequestCanArrive) {
  Start();
  link_.listener->OnLinkUp(0x87);
  EXPECT_EQ(agent_->Counters().subscriptions_refused, 1U);
}

TEST_F(AgentTest, PublishesWhatTheAdapterPushes) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  EXPECT_THAT(link_.sent, ElementsAre(R"(cameras/CAM1/message/get_sn )"
                                      R"({"payload":"p","tag":25,"version":"1.0"})"));
}

TEST_F(AgentTest, TellsTheAdapterOfAnAcknowledgementOnlyWhenItArrives) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  EXPECT_THAT(calls_, ElementsAre());
  EXPECT_EQ(Printed(), "");
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(calls_, ElementsAre("Published 25"));
  EXPECT_EQ(Printed(), "get_sn tag 25 \"p\": acknowledged\n");
}

TEST_F(AgentTest, TakesNoMatchingSubscribersForAnAcknowledgement) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  link_.listener->OnAcknowledged(1, 0x10);
  EXPECT_THAT(calls_, ElementsAre("Published 25"));
}

TEST_F(AgentTest, LeavesAResultThatNobodyHeardInTheStoreAndHoldsTheNextBack) {
  StartAndConnect();
  BusDelivers("BUS_SRV_IVS_RESULT");
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0x10);
  BusDelivers("BUS_SRV_IVS_RESULT");
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Deliver BUS_SRV_IVS_RESULT"));
  EXPECT_EQ(Printed(), "ivs_result tag 11 \"p\": heard by nobody\n");
  EXPECT_EQ(agent_->Counters().delivery.results_unheard, 1U);
}

TEST_F(AgentTest, OffersAStoredResultUntilSomebodyListens) {
  bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":90}})";
  StartAndConnect();
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0x10);
  loop_.Advance(std::chrono::seconds(10));
  EXPECT_THAT(calls_, ElementsAre(HasSubstr(R"("enable":"push","max_count":1,)")));
}

TEST_F(AgentTest, RemovesThePicturesOfWhatTheCloudDoesNotHave) {
  StartAndConnect();
  EXPECT_NE(AdapterStoresPicture(), "");
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0x10);
  EXPECT_EQ(PicturesKept(), 0U);
  AdapterStoresPicture();
  AdapterPublishes("ivs_result", 16);
  link_.listener->OnAcknowledged(2, 0x87);
  EXPECT_EQ(PicturesKept(), 0U);
}

TEST_F(AgentTest, KeepsThePicturesOfWhatTheCloudHasOrMayHave) {
  StartAndConnect();
  AdapterStoresPicture();
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnAcknowledged(1, 0);
  AdapterStoresPicture();
  AdapterPublishes("snapshot", 15);
  link_.listener->OnAcknowledged(2, 0x10);
  AdapterStoresPicture();
  AdapterPublishes("ivs_result", 11);
  link_.listener->OnLinkDown("why");
  EXPECT_EQ(PicturesKept(), 3U);
}

TEST_F(AgentTest, DoesNotConfirmWhatTheBrokerRefuses) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  link_.listener->OnAcknowledged(1, 0x87);
  EXPECT_THAT(calls_, ElementsAre());
  EXPECT_EQ(Printed(), "get_sn tag 25 \"p\": refused by the broker\n");
  EXPECT_EQ(agent_->Counters().refused_by_broker, 1U);
}

TEST_F(AgentTest, CountsWhatIsPublishedWithoutALinkAndKeepsNothing) {
  Start();
  out_.str("");
  AdapterPublishes("get_sn", 25);
  EXPECT_EQ(Printed(), "get_sn tag 25 \"p\": not sent: link down\n");
  EXPECT_EQ(agent_->Counters().dropped_link_down, 1U);
  link_.listener->OnLinkUp(1);
  EXPECT_THAT(link_.sent, Not(Contains(StartsWith("cameras/CAM1/message/"))));
}

TEST_F(AgentTest, NeverConfirmsWhatWasUnderWayWhenTheLinkBroke) {
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  link_.listener->OnLinkDown("why");
  link_.listener->OnLinkUp(1);
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(calls_, Not(Contains("Published 25")));
  EXPECT_EQ(Printed(),
            "get_sn tag 25 \"p\": not acknowledged: link lost\n"
            "broker lost: why\n"
            "broker connected\n");
  EXPECT_EQ(agent_->Counters().delivery.ignored_acks, 1U);
}

TEST_F(AgentTest, CountsWhatTheLinkHasNoRoomForOrCannotPublish) {
  StartAndConnect();
  for (int i = 0; i < 256; ++i) {
    AdapterPublishes("get_sn", 25);
  }
  EXPECT_EQ(agent_->Counters().dropped_backlog_full, 0U);
  AdapterPublishes("get_sn", 25);
  link_.listener->OnAcknowledged(1, 0);
  link_.result = PublishResult::kRefused;
  AdapterPublishes("get_sn", 25);
  EXPECT_EQ(agent_->Counters().dropped_backlog_full, 1U);
  EXPECT_EQ(agent_->Counters().dropped_not_publishable, 1U);
  EXPECT_EQ(agent_->Counters().published, 256U);
}

TEST_F(AgentTest, HandsOverOneResultAtATime) {
  StartAndConnect();
  BusDelivers("BUS_SRV_IVS_RESULT");
  AdapterPublishes("ivs_result", 11);
  BusDelivers("BUS_SRV_IVS_RESULT");
  BusDelivers("EVS_RS485_READ");
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Deliver BUS_SRV_IVS_RESULT", "Deliver EVS_RS485_READ"));
  EXPECT_EQ(agent_->Counters().results_waiting, 1U);
  calls_.clear();
  link_.listener->OnAcknowledged(1, 0);
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Published 11", "Deliver BUS_SRV_IVS_RESULT"));
}

TEST_F(AgentTest, GoesOnWithTheNextResultWhenOneCouldNotBeSent) {
  StartAndConnect();
  link_.result = PublishResult::kRefused;
  BusDelivers("BUS_SRV_IVS_RESULT");
  BusDelivers("BUS_SRV_IVS_RESULT");
  AdapterPublishes("ivs_result", 11);
  loop_.Run();
  EXPECT_THAT(calls_, ElementsAre("Deliver BUS_SRV_IVS_RESULT", "Deliver BUS_SRV_IVS_RESULT"));
  EXPECT_EQ(agent_->Counters().delivery.results_without_publication, 1U);  // the second, so far
}

TEST_F(AgentTest, DropsASecondRedeliveredRecordUnderWay) {
  StartAndConnect();
  AdapterPublishes("ivs_result", 16);
  AdapterPublishes("ivs_result", 16);
  EXPECT_EQ(link_.sent.size(), 1U);
  EXPECT_EQ(agent_->Counters().delivery.dropped_offline_busy, 1U);
}

TEST_F(AgentTest, WithholdsAConfirmationAfterTheCloudStoppedTheRedelivery) {
  StartAndConnect();
  AdapterPublishes("ivs_result", 16);
  CloudSends("check_offline_record", R"({"version":"1.0","payload":{"body":{"enable":"stop"}}})");
  link_.listener->OnAcknowledged(1, 0);
  EXPECT_THAT(calls_, Not(Contains("Published 16")));
  EXPECT_EQ(agent_->Counters().delivery.withheld_acks, 1U);
}

TEST_F(AgentTest, LeavesABrokerThatOwesAnAcknowledgementForTooLong) {
  options_.ack_timeout_s = 15;
  StartAndConnect();
  AdapterPublishes("get_sn", 25);
  loop_.Advance(std::chrono::seconds(15));
  EXPECT_THAT(calls_, ElementsAre());
  loop_.Advance(std::chrono::seconds(1));
  EXPECT_THAT(calls_, ElementsAre("Drop link, no acknowledgement of a message in 15 s"));
}

TEST_F(AgentTest, RefreshesItsStatusWhileTheLinkStands) {
  StartAndConnect();
  bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":9}})";
  loop_.Advance(std::chrono::seconds(10));
  EXPECT_THAT(link_.sent, ElementsAre(HasSubstr(R"("undelivered":{"count":4,"oldest_age_s":9})")));
  link_.sent.clear();
  link_.listener->OnLinkDown("why");
  loop_.Advance(std::chrono::seconds(30));
  EXPECT_THAT(link_.sent, ElementsAre());
}

TEST_F(AgentTest, LendsTheAdapterAnImageFunctionThatSurvivesNonsense) {
  Start();
  EXPECT_EQ(adapter_->image_function("/no/such/picture", "../x"), "");
}

TEST_F(AgentTest, AsksForRedeliveryByItselfOnlyWhenToldTo) {
  options_.ack_timeout_s = 3600;
  bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":90}})";
  StartAndConnect();
  loop_.Advance(std::chrono::seconds(60));
  EXPECT_THAT(calls_, ElementsAre());
}

class AutoPushingAgent : public AgentTest {
 protected:
  AutoPushingAgent() {
    options_.auto_push = true;
    options_.clock_scale = 6.0;  // the pause of six seconds is one second
    bus_->reply = R"({"body":{"offline_count":4,"oldest_age_s":0}})";
  }
};

TEST_F(AutoPushingAgent, AsksForRedeliveryAfterAReconnection) {
  StartAndConnect();
  loop_.Advance(std::chrono::milliseconds(1000));
  EXPECT_THAT(calls_, ElementsAre(R"(Request check_offline_record {"body":{"enable":"push",)"
                                  R"("max_count":1000000,"min_id":0},)"
                                  R"("type":"check_offline_record"})"));
}

TEST_F(AutoPushingAgent, LeavesARedeliveryAloneThatGoesOnByItself) {
  StartAndConnect();
  for (std::uint64_t record = 1; record <= 5; ++record) {
    AdapterPublishes("ivs_result", 16);
    loop_.Advance(std::chrono::milliseconds(900));
    link_.listener->OnAcknowledged(record, 0);
    loop_.Advance(std::chrono::milliseconds(900));
  }
  EXPECT_THAT(calls_, Not(Contains(HasSubstr("Request"))));
}

}  // namespace
}  // namespace agent
