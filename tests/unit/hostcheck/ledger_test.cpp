// Each way in which a host breaks a duty, and what is no breach of it.
#include "hostcheck/ledger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hostcheck/checks.h"

namespace hostcheck {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A host that has set its adapter up, and whose link stands.
class LedgerTest : public ::testing::Test {
 protected:
  LedgerTest() {
    Called("create_adapter");
    Called("Initialize");
    Called("GetMessageNames");
    Called("OnMQTTConnected");
  }

  void Called(const std::string& name, Json::Value event = Json::objectValue) {
    event["event"] = name;
    event["thread"] = thread_;
    event["is_waiting"] = is_waiting_;
    ledger_.OnEvent(event);
  }

  void HandedOver(unsigned plate_id, bool is_swallowed = false) {
    Json::Value event;
    event["plate_id"] = plate_id;
    event["is_swallowed"] = is_swallowed;
    event["is_listening"] = is_listening_;
    Called("result", event);
  }

  /// The plug-in publishes. @return the mark.
  std::string Publishes(unsigned long long tag, unsigned plate_id) {
    Json::Value event;
    event["mark"] = "hostcheck-" + std::to_string(++publications_) + ".";
    event["name"] = "ivs_result";
    event["tag"] = Json::UInt64{tag};
    event["plate_id"] = plate_id;
    event["pictures"] = pictures_;
    Called("publishes", event);
    return event["mark"].asString();
  }

  /// A publication that is at the broker.
  std::string Sent(unsigned long long tag, unsigned plate_id) {
    const std::string mark = Publishes(tag, plate_id);
    ledger_.OnArrived(mark, connection_);
    return mark;
  }

  void Acknowledge(const std::string& mark) { ledger_.OnAnswered(mark, false); }
  void Refuse(const std::string& mark) { ledger_.OnAnswered(mark, true); }

  void Confirmed(unsigned long long tag) {
    Json::Value event;
    event["tag"] = Json::UInt64{tag};
    Called("OnMessagePublished", event);
  }

  void LinkIsLost() { Called("OnMQTTDisconnected"); }
  void LinkIsBack() {
    ledger_.OnConnection(++connection_);
    Called("OnMQTTConnected");
  }

  void Requested(const std::string& name, const std::string& enable,
                 const std::string& version = "1.0") {
    Json::Value event;
    event["name"] = name;
    event["payload"]["type"] = name;
    event["payload"]["body"]["enable"] = enable;
    event["payload"]["body"]["max_count"] = max_count_;
    event["version"] = version;
    Called("RequestMessage", event);
  }

  void Subscribed(const std::string& name) {
    Json::Value event;
    event["name"] = name;
    Called("SubscribeMessage", event);
  }

  std::vector<std::string> Broken() const {
    std::vector<std::string> broken;
    for (const Check& check : kChecks) {
      if (ledger_.verdict(check.name).state == Ledger::State::kBroken) {
        broken.emplace_back(check.name);
      }
    }
    return broken;
  }

  Ledger ledger_{[] { return std::string("1.5 s"); }};
  int thread_ = 7;
  bool is_waiting_ = false;
  bool is_listening_ = true;
  int max_count_ = 5;
  Json::Value pictures_ = [] {
    Json::Value texts;
    texts.append("a");
    texts.append("b");
    return texts;
  }();
  int publications_ = 0;
  int connection_ = 0;
};

TEST_F(LedgerTest, FindsNothingWrongWithResultsThatAreAcknowledgedOneByOne) {
  for (unsigned plate_id = 1; plate_id <= 12; ++plate_id) {
    HandedOver(plate_id);
    Acknowledge(Sent(11, plate_id));
    Confirmed(11);
  }
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, SaysWhatHappenedWhenAndAfterWhat) {
  HandedOver(1);
  HandedOver(2);
  EXPECT_EQ(
      ledger_.verdict(kOneAtATime).moment,
      "result 2 was handed over while result 1 was not published yet; at 1.5 s, after result 1");
}

TEST_F(LedgerTest, KeepsTheFirstMomentOfWhatIsBroken) {
  ledger_.Broken(kStale, "first");
  ledger_.Broken(kStale, "second");
  EXPECT_EQ(ledger_.verdict(kStale).moment.substr(0, 6), "first;");
}

TEST_F(LedgerTest, HoldsNothingForKeptThatWasNotTried) {
  EXPECT_EQ(ledger_.verdict(kStale).state, Ledger::State::kNotExercised);
  ledger_.Exercised(kStale);
  EXPECT_EQ(ledger_.verdict(kStale).state, Ledger::State::kKept);
}

TEST_F(LedgerTest, HoldsNothingForKeptThatIsBroken) {
  ledger_.Broken(kStale, "");
  ledger_.Exercised(kStale);
  EXPECT_TRUE(ledger_.IsAnyBroken());
  EXPECT_THAT(Broken(), ElementsAre(kStale));
}

TEST_F(LedgerTest, SaysWhyACheckIsNotExercised) {
  ledger_.Skipped(kStale, "why");
  ledger_.Skipped(kStale, "later");
  EXPECT_EQ(ledger_.verdict(kStale).moment, "why");
}

// The order of calls.

TEST_F(LedgerTest, FindsASecondInitialize) {
  Called("Initialize");
  EXPECT_THAT(Broken(), ElementsAre(kCallOrder));
}

TEST_F(LedgerTest, FindsASecondAdapter) {
  Called("create_adapter");
  EXPECT_THAT(Broken(), ElementsAre(kCallOrder));
}

TEST_F(LedgerTest, FindsACallBeforeInitialize) {
  ledger_ = Ledger([] { return std::string(); });
  Called("create_adapter");
  Called("GetMessageNames");
  EXPECT_THAT(Broken(), ElementsAre(kCallOrder));
}

TEST_F(LedgerTest, FindsACallBeforeTheNamesAreKnown) {
  ledger_ = Ledger([] { return std::string(); });
  Called("create_adapter");
  Called("Initialize");
  Subscribed("ivs_result");
  EXPECT_THAT(Broken(), ElementsAre(kCallOrder));
}

TEST_F(LedgerTest, FindsACallOnAnotherThread) {
  thread_ = 8;
  Confirmed(17);
  EXPECT_THAT(Broken(), testing::Contains(kOneThread));
}

TEST_F(LedgerTest, FindsAMessageOnAnotherThread) {
  thread_ = 8;
  HandedOver(1);
  EXPECT_THAT(Broken(), ElementsAre(kOneThread));
}

TEST_F(LedgerTest, FindsACallWhileABusRequestKeepsTheThread) {
  is_waiting_ = true;
  Subscribed("ivs_result");
  EXPECT_THAT(Broken(), ElementsAre(kNotReentered));
}

TEST_F(LedgerTest, FindsACallAfterTheAdapterWasDestroyed) {
  Called("destory_adapter");
  LinkIsLost();
  EXPECT_THAT(Broken(), ElementsAre(kDestroyedLast));
}

TEST_F(LedgerTest, FindsAMessageAfterTheAdapterWasDestroyed) {
  Called("destory_adapter");
  HandedOver(1);
  EXPECT_THAT(Broken(), ElementsAre(kDestroyedLast));
}

TEST_F(LedgerTest, FindsALinkThatIsToldTwice) {
  LinkIsBack();
  EXPECT_THAT(Broken(), ElementsAre(kConnectionTold));
}

TEST_F(LedgerTest, FindsALossThatIsToldTwice) {
  LinkIsLost();
  LinkIsLost();
  EXPECT_THAT(Broken(), ElementsAre(kConnectionTold));
}

// What is passed.

TEST_F(LedgerTest, FindsASubscriptionToWhatWasNotAnnounced) {
  Subscribed("set_time");
  EXPECT_THAT(Broken(), ElementsAre(kSubscribedWithLink));
}

TEST_F(LedgerTest, FindsARequestThatWasNotAnnounced) {
  Requested("set_time", "");
  EXPECT_THAT(Broken(), ElementsAre(kRequestArguments));
}

TEST_F(LedgerTest, FindsARequestOfAnotherVersion) {
  Requested("get_sn", "", "1.1");
  EXPECT_THAT(Broken(), ElementsAre(kRequestArguments));
}

TEST_F(LedgerTest, FindsAPayloadThatIsNotTheRequests) {
  for (const char* payload : {"type", "body"}) {
    Json::Value event;
    event["name"] = "get_sn";
    event["payload"]["type"] = "get_sn";
    event["payload"]["body"] = Json::objectValue;
    event["payload"][payload] = "other";
    event["version"] = "1.0";
    ledger_ = Ledger([] { return std::string(); });
    Called("Initialize");
    Called("GetMessageNames");
    Called("RequestMessage", event);
    EXPECT_THAT(Broken(), ElementsAre(kRequestArguments)) << payload;
  }
}

TEST_F(LedgerTest, FindsAMissingImageFunction) {
  pictures_ = Json::Value();
  Publishes(11, 1);
  EXPECT_THAT(Broken(), ElementsAre(kPictures));
}

TEST_F(LedgerTest, FindsAPictureWithoutAText) {
  pictures_[1] = "";
  Publishes(11, 1);
  EXPECT_THAT(Broken(), ElementsAre(kPictures));
}

TEST_F(LedgerTest, FindsTwoPicturesOfOneText) {
  pictures_[1] = "a";
  Publishes(11, 1);
  EXPECT_THAT(Broken(), ElementsAre(kPictures));
}

// One result at a time.

TEST_F(LedgerTest, FindsAResultBeforeTheOneBeforeIsPublished) {
  HandedOver(1);
  HandedOver(2);
  EXPECT_THAT(Broken(), ElementsAre(kOneAtATime));
}

TEST_F(LedgerTest, FindsAResultBeforeTheOneBeforeIsAcknowledged) {
  HandedOver(1);
  Sent(11, 1);
  HandedOver(2);
  EXPECT_THAT(Broken(), ElementsAre(kOneAtATime));
}

TEST_F(LedgerTest, FindsAResultBeforeThePlugInIsToldOfTheAcknowledgement) {
  HandedOver(1);
  Acknowledge(Sent(11, 1));
  HandedOver(2);
  EXPECT_THAT(Broken(), ElementsAre(kOneAtATime));
}

TEST_F(LedgerTest, LetsTheNextResultComeAfterARefusal) {
  HandedOver(1);
  Refuse(Sent(11, 1));
  HandedOver(2);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, LetsTheNextResultComeAfterALossOfTheLink) {
  HandedOver(1);
  Sent(11, 1);
  LinkIsLost();
  LinkIsBack();
  HandedOver(2);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, LetsTheNextResultComeAfterOneWithoutAPublication) {
  HandedOver(1, true);
  HandedOver(2);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, FindsAResultTwice) {
  HandedOver(1);
  Acknowledge(Sent(11, 1));
  Confirmed(11);
  HandedOver(1);
  EXPECT_THAT(Broken(), ElementsAre(kInOrder));
}

TEST_F(LedgerTest, FindsAResultOfATopicThatWasLeft) {
  is_listening_ = false;
  HandedOver(1);
  EXPECT_THAT(Broken(), ElementsAre(kBusUnlistened));
}

// Acknowledgements.

TEST_F(LedgerTest, FindsAConfirmationBeforeTheAcknowledgement) {
  HandedOver(1);
  Sent(11, 1);
  Confirmed(11);
  EXPECT_THAT(Broken(), ElementsAre(kPositiveAnswer));
}

TEST_F(LedgerTest, FindsAConfirmationOfWhatTheBrokerRefused) {
  HandedOver(1);
  Refuse(Sent(11, 1));
  Confirmed(11);
  EXPECT_THAT(Broken(), ElementsAre(kPositiveAnswer));
}

TEST_F(LedgerTest, FindsAConfirmationByAnotherTag) {
  HandedOver(1);
  Acknowledge(Sent(11, 1));
  Confirmed(16);
  EXPECT_THAT(Broken(), ElementsAre(kConfirmedOnce));
}

TEST_F(LedgerTest, FindsASecondConfirmation) {
  HandedOver(1);
  Acknowledge(Sent(11, 1));
  Confirmed(11);
  Confirmed(11);
  EXPECT_THAT(Broken(), ElementsAre(kConfirmedOnce));
}

TEST_F(LedgerTest, FindsAConfirmationOfWhatWasPublishedBeforeALoss) {
  HandedOver(1);
  Acknowledge(Sent(11, 1));
  LinkIsLost();
  LinkIsBack();
  Confirmed(11);
  EXPECT_THAT(Broken(), ElementsAre(kStale));
}

TEST_F(LedgerTest, TakesAConfirmationForThePublicationThatMayBeConfirmed) {
  HandedOver(1);
  Sent(11, 1);
  LinkIsLost();
  LinkIsBack();
  HandedOver(2);
  Acknowledge(Sent(11, 2));
  Confirmed(11);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, DoesNotTakeAConfirmationForThatOfARefusedResult) {
  HandedOver(1);
  Refuse(Sent(11, 1));
  HandedOver(2);
  Acknowledge(Sent(11, 2));
  Confirmed(11);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, FindsWhatIsSentASecondTime) {
  HandedOver(1);
  const std::string mark = Sent(11, 1);
  LinkIsLost();
  LinkIsBack();
  ledger_.OnArrived(mark, connection_);
  EXPECT_THAT(Broken(), ElementsAre(kNotSentAgain));
}

TEST_F(LedgerTest, LetsThePublicationsOfALinkBeReadAfterItsLoss) {
  HandedOver(1);
  const std::string mark = Publishes(11, 1);
  LinkIsLost();
  ledger_.OnArrived(mark, connection_);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, FindsWhatWasKeptThroughALossAndIsSentThen) {
  HandedOver(1);
  const std::string mark = Publishes(11, 1);
  LinkIsLost();
  LinkIsBack();
  ledger_.OnArrived(mark, connection_);
  EXPECT_THAT(Broken(), ElementsAre(kNotSentAgain));
}

// Re-delivery.

TEST_F(LedgerTest, FindsNothingWrongWithRecordsThatAreAcknowledgedOneByOne) {
  for (unsigned plate_id = 1; plate_id <= 3; ++plate_id) {
    Acknowledge(Sent(16, plate_id));
    Confirmed(16);
  }
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, FindsASecondRecordWhileOneIsUnderWay) {
  Sent(16, 1);
  Sent(16, 2);
  EXPECT_THAT(Broken(), ElementsAre(kSecondDropped));
}

TEST_F(LedgerTest, FindsTheConfirmationOfARecordThatIsNotTheFirstAnyMore) {
  const std::string mark = Sent(16, 1);
  Publishes(16, 2);  // which the host drops
  Acknowledge(mark);
  Confirmed(16);
  EXPECT_THAT(Broken(), ElementsAre(kOtherWithheld));
}

TEST_F(LedgerTest, LetsARecordBeConfirmedThatWasPublishedTwice) {
  const std::string mark = Sent(16, 1);
  Publishes(16, 1);
  Acknowledge(mark);
  Confirmed(16);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, LetsTheNextRecordBeConfirmedAfterOneThatWasWithheld) {
  const std::string mark = Sent(16, 1);
  Publishes(16, 2);
  Acknowledge(mark);
  Acknowledge(Sent(16, 3));
  Confirmed(16);
  EXPECT_THAT(Broken(), IsEmpty());
}

TEST_F(LedgerTest, FindsTheConfirmationOfARecordAfterAStop) {
  const std::string mark = Sent(16, 1);
  Requested("check_offline_record", "stop");
  Acknowledge(mark);
  Confirmed(16);
  EXPECT_THAT(Broken(), ElementsAre(kEmptiedWithheld));
}

TEST_F(LedgerTest, FindsTheConfirmationOfARecordAfterAPushOfNone) {
  const std::string mark = Sent(16, 1);
  max_count_ = 0;
  Requested("check_offline_record", "push");
  Acknowledge(mark);
  Confirmed(16);
  EXPECT_THAT(Broken(), ElementsAre(kEmptiedWithheld));
}

TEST_F(LedgerTest, LetsARecordBeConfirmedAfterAPushOfSome) {
  const std::string mark = Sent(16, 1);
  Requested("check_offline_record", "push");
  Acknowledge(mark);
  Confirmed(16);
  EXPECT_THAT(Broken(), IsEmpty());
}

// The platform's verdicts come from within the host.

TEST_F(LedgerTest, TakesOverWhatIsFoundInThePlatform) {
  for (const char* broken : {"", "why"}) {
    Json::Value event;
    event["check"] = *broken == '\0' ? kBusTimeout : kBusReply;
    event["broken"] = broken;
    event["is_exercised"] = true;
    Called("platform", event);
  }
  EXPECT_THAT(Broken(), ElementsAre(kBusReply));
  EXPECT_EQ(ledger_.verdict(kBusTimeout).state, Ledger::State::kKept);
}

TEST_F(LedgerTest, TakesOverWhatCannotBeSeenOfThePlatform) {
  Json::Value event;
  event["check"] = kBusTimeout;
  event["broken"] = "why";
  event["is_exercised"] = false;
  Called("platform", event);
  EXPECT_EQ(ledger_.verdict(kBusTimeout).state, Ledger::State::kNotExercised);
}

}  // namespace
}  // namespace hostcheck
