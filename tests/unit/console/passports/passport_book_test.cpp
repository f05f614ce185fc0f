#include "console/passports/passport_book.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_text.h"
#include "tarvex/base64.h"

namespace console {
namespace {

using testing::ElementsAre;

std::string Record(std::uint32_t plate_id, const std::string& plate) {
  std::string record(552, '\0');
  record.replace(0, plate.size(), plate);
  for (std::size_t i = 0; i < 4; ++i) {
    record[80 + i] = static_cast<char>(plate_id >> (8 * i) & 0xFFU);
  }
  return record;
}

std::string Published(std::uint32_t plate_id) {
  return R"({"version":"1.0","tag":11,"payload":{"AlarmInfoPlate":{"result":{"PlateResult":)"
         R"({"plateid":)" +
         std::to_string(plate_id) + "}}}}}";
}

class Passports : public testing::Test {
 protected:
  /// A program announces an event, a millisecond after the one before.
  void Told(const std::string& event, const std::string& members) {
    Json::Value json;
    ASSERT_TRUE(Json::String2Json(R"({"sn":"CAM1","event":")" + event + R"(","at_us":)" +
                                      std::to_string(Next()) + (members.empty() ? "" : ",") +
                                      members + "}",
                                  json))
        << members;
    book_.OnTrace(json);
  }

  void OnTheBus(const std::string& topic, const std::string& body) {
    book_.OnBusMessage("CAM1", topic, body, Next());
  }

  void AtTheBroker(const std::string& name, const std::string& payload) {
    book_.OnBrokerMessage({"CAM1", "message", name, "c/" + name, payload, "", Next()});
  }

  Time_us Next() { return now_us_ += 1000; }

  const Passport& Of(const std::string& id) {
    const Passport* found = book_.Find(id);
    EXPECT_NE(found, nullptr) << id;
    static const Passport kNone;
    return found == nullptr ? kNone : *found;
  }

  std::vector<std::string> StepsOf(const std::string& id) {
    std::vector<std::string> steps;
    for (const Passport::Step& step : Of(id).steps) {
      steps.push_back(step.by + " " + step.what);
    }
    return steps;
  }

  static std::string Base64(const std::string& bytes) {
    return "\"" + tarvex::Base64::Encode(bytes) + "\"";
  }

  std::vector<std::string> heard_;
  PassportBook book_{[this](const Passport& passport, const char* step) {
                       heard_.push_back(passport.id + " " + step);
                     },
                     PassportBook::Limits{5, 20000, 1000}};
  Time_us now_us_ = 1000000;
};

TEST_F(Passports, HaveThePlateOfAResultThatOnlyTheBrokerTells) {
  BrokerMessage message;
  message.sn = "FAR1";
  message.channel = "message";
  message.name = "ivs_result";
  message.payload =
      R"({"payload":{"AlarmInfoPlate":{"result":{"PlateResult":{"plateid":7,"license":"QUIxMg=="}}}}})";
  book_.OnBrokerMessage(message);
  ASSERT_NE(book_.Find("result/FAR1/7"), nullptr);
  EXPECT_EQ(book_.Find("result/FAR1/7")->plate, "AB12");
}

TEST_F(Passports, OfAResultHasItsWholeWay) {
  Told("stored", R"("plate_id":7)");
  Told("announced", R"("topic":"BUS_SRV_IVS_RESULT","plate_id":7)");
  OnTheBus("BUS_SRV_IVS_RESULT", Record(7, "AB12345"));
  Told("handed_over", R"("topic":"BUS_SRV_IVS_RESULT","body":)" + Base64(Record(7, "AB12345")));
  Told("published", R"("name":"ivs_result","tag":11,"publication":3,"plate_id":7)");
  AtTheBroker("ivs_result", Published(7));
  Told("acknowledged", R"("tag":11,"publication":3,"answer":"taken","us":1234)");
  EXPECT_EQ(Of("result/CAM1/7").state, "acknowledged");
  Told("delivered", R"("plate_id":7)");
  EXPECT_THAT(StepsOf("result/CAM1/7"),
              ElementsAre("camera stored", "camera announced", "bus on_the_bus",
                          "agent handed_over", "agent published", "broker at_the_broker",
                          "broker acknowledged", "camera delivered"));
  const Passport& passport = Of("result/CAM1/7");
  EXPECT_EQ(passport.state, "delivered");
  EXPECT_EQ(passport.plate, "AB12345");
  EXPECT_EQ(passport.bus->body, Record(7, "AB12345"));
  EXPECT_EQ(passport.mqtt.at(0).payload, Published(7));
  EXPECT_EQ(passport.ack_us, 1234);
  EXPECT_EQ(passport.copies, 1);
}

TEST_F(Passports, AreTheSameInWhateverOrderTheWaysTellThem) {
  AtTheBroker("ivs_result", Published(7));
  Told("acknowledged", R"("tag":11,"publication":3,"answer":"taken","us":1)");  // not known yet
  OnTheBus("BUS_SRV_IVS_RESULT", Record(7, "AB12345"));
  Told("published", R"("name":"ivs_result","tag":11,"publication":3,"plate_id":7)");
  Told("stored", R"("plate_id":7)");
  EXPECT_EQ(Of("result/CAM1/7").state, "published");
  EXPECT_EQ(book_.All().size(), 1U);
}

TEST_F(Passports, SayThatAResultIsBackInTheStore) {
  Told("stored", R"("plate_id":7)");
  Told("published", R"("name":"ivs_result","tag":11,"publication":3,"plate_id":7)");
  Told("unconfirmed", R"("tag":11,"publication":3,"plate_id":7)");
  EXPECT_EQ(Of("result/CAM1/7").state, "in_store");
  Told("published", R"("name":"ivs_result","tag":16,"publication":4,"plate_id":7)");
  Told("acknowledged", R"("tag":16,"publication":4,"answer":"taken","us":9)");
  EXPECT_EQ(Of("result/CAM1/7").state, "acknowledged");
  EXPECT_TRUE(Of("result/CAM1/7").is_redelivered);
}

TEST_F(Passports, OfAResultThatNobodyHearsSaySo) {
  Told("published", R"("name":"ivs_result","tag":11,"publication":3,"plate_id":7)");
  Told("acknowledged", R"("tag":11,"publication":3,"answer":"unheard","us":9)");
  EXPECT_EQ(Of("result/CAM1/7").state, "in_store");
}

TEST_F(Passports, OfAnInputAreTiedTogetherByTopicAndSize) {
  OnTheBus("EVT_SRV_EXTERNAL_TRIGGER", "{}");
  Told("announced", R"("topic":"EVT_SRV_EXTERNAL_TRIGGER")");
  Told("handed_over", R"("topic":"EVT_SRV_EXTERNAL_TRIGGER","body":)" + Base64("{}"));
  AtTheBroker("gpio_in", "{1}");  // before the agent's word of it has come
  Told("published", R"("name":"gpio_in","tag":1,"publication":3,"topic":"c/gpio_in","bytes":13)");
  EXPECT_TRUE(book_.Find("event/CAM1/1")->mqtt.empty());  // another size
  AtTheBroker("gpio_in", "{22}");
  const Passport& passport = Of("event/CAM1/1");
  EXPECT_EQ(passport.kind, "input");
  EXPECT_EQ(passport.mqtt.at(0).payload, "{22}");
  EXPECT_EQ(book_.All().size(), 1U);
}

TEST_F(Passports, OfAMessageThatRepeatsAResultAreItsOwn) {
  Told("published", R"("name":"get_last_result","tag":27,"publication":3,"plate_id":7,)"
                    R"("topic":"c/get_last_result","bytes":19)");
  AtTheBroker("get_last_result", "{}");
  Told("acknowledged", R"("tag":27,"publication":3,"answer":"taken","us":9)");
  ASSERT_EQ(book_.All().size(), 1U);
  EXPECT_EQ(book_.All()[0]->kind, "message");
  EXPECT_EQ(book_.All()[0]->state, "acknowledged");
  EXPECT_EQ(book_.All()[0]->copies, 1);
}

TEST_F(Passports, OfARequestHaveTheBusRequestsAndTheAnswer) {
  Told("request", R"("request":"9-1","name":"get_sn","topic":"c/get_sn","payload":"{}",)"
                  R"("waited_us":500)");
  Told("bus_request",
       R"("request":"9-1","queue":"Q","timeout_ms":300,"outcome":"answered","us":70,)"
       R"("body":)" +
           Base64("ask") + R"(,"reply":)" + Base64("told"));
  Told("published", R"("request":"9-1","name":"get_sn","tag":1,"publication":8,"topic":"c/get_sn",)"
                    R"("bytes":11)");
  AtTheBroker("get_sn", "{1}");
  Told("response", R"("request":"9-1","topic":"r","payload":"{2}","us":900)");
  const Passport& passport = Of("request/CAM1/9-1");
  EXPECT_EQ(passport.state, "answered");
  EXPECT_EQ(passport.request->payload, "{}");
  EXPECT_EQ(passport.bus_requests.at(0).body, "ask");
  EXPECT_EQ(passport.bus_requests.at(0).reply, "told");
  EXPECT_EQ(passport.bus_requests.at(0).timeout_ms, 300);
  EXPECT_EQ(passport.mqtt.at(0).payload, "{1}");
  EXPECT_EQ(passport.response->payload, "{2}");
  EXPECT_EQ(passport.response->us, 900);
}

TEST_F(Passports, OfTheConsolesOwnRequestBeginWhenItIsSent) {
  const std::string id = book_.OnSent("CAM1", "get_sn", {"c/get_sn", "{}", Next(), 0, "console-1"});
  EXPECT_EQ(Of(id).state, "sent");
  Told("request", R"("request":"9-1","name":"get_sn","topic":"c/get_sn","payload":"{}",)"
                  R"("waited_us":0,"correlation":"console-1")");
  Told("response", R"("request":"9-1","topic":"r","payload":"{2}","us":900)");
  EXPECT_EQ(Of(id).state, "answered");
  EXPECT_EQ(book_.All().size(), 1U);
}

TEST_F(Passports, OfAnAnsweredRequestStaySoWhenItsBeginIsToldLate) {
  const std::string id = book_.OnSent("CAM1", "get_sn", {"c", "{}", Next(), 0, "console-1"});
  book_.OnBrokerMessage({"CAM1", "response", "get_sn", "r", "{2}", "console-1", Next()});
  Told("request", R"("request":"9-1","name":"get_sn","payload":"{}","correlation":"console-1")");
  EXPECT_EQ(Of(id).state, "answered");
  EXPECT_EQ(Of(id).response->payload, "{2}");
}

TEST_F(Passports, OfARequestWithoutAnAnswerSaySoInTime) {
  const std::string id = book_.OnSent("CAM1", "get_sn", {"c", "{}", Next(), 0, "console-1"});
  book_.OnTime(now_us_ + 14000000);
  EXPECT_EQ(Of(id).state, "sent");
  book_.OnTime(now_us_ + 16000000);
  EXPECT_EQ(Of(id).state, "unanswered");
}

TEST_F(Passports, OfAnAgentThatTellsNothingComeFromTheBroker) {
  AtTheBroker("gpio_in", "{}");
  EXPECT_TRUE(book_.All().empty());
  book_.OnTime(now_us_ + 2000000);
  ASSERT_EQ(book_.All().size(), 1U);
  EXPECT_EQ(book_.All()[0]->kind, "input");
}

TEST_F(Passports, AreBoundedInNumber) {
  for (int id = 1; id <= 9; ++id) {
    Told("stored", R"("plate_id":)" + std::to_string(id));
  }
  EXPECT_EQ(book_.All().size(), 5U);
  EXPECT_EQ(book_.Find("result/CAM1/4"), nullptr);
  EXPECT_NE(book_.Find("result/CAM1/5"), nullptr);
  EXPECT_EQ(book_.TakeChanged().size(), 5U);
}

TEST_F(Passports, AreBoundedInBytes) {
  for (int i = 1; i <= 4; ++i) {
    const std::string text(900, 'x');
    for (int j = 0; j < 8; ++j) {
      Told("bus_request",
           R"("request":")" + std::to_string(i) + R"(","queue":"Q","body":)" + Base64(text));
      Told("request", R"("request":")" + std::to_string(i) + R"(","name":"n","payload":"")");
    }
  }
  EXPECT_LT(book_.All().size(), 4U);
}

TEST_F(Passports, CutWhatIsTooLong) {
  Told("request", R"("request":"1","name":"n","payload":")" + std::string(1001, 'x') + "\"");
  EXPECT_EQ(Of("request/CAM1/1").request->payload.size(), 1000U);
  EXPECT_TRUE(Of("request/CAM1/1").is_cut);
}

TEST_F(Passports, AreFoundByAShortName) {
  Told("stored", R"("plate_id":12)");
  Told("request", R"("request":"9-12","name":"n","payload":"")");
  EXPECT_EQ(book_.FindShort("12")->id, "result/CAM1/12");
  EXPECT_EQ(book_.FindShort("9-12")->id, "request/CAM1/9-12");
  EXPECT_EQ(book_.FindShort("2"), nullptr);
  EXPECT_EQ(book_.FindShort(""), nullptr);
}

TEST_F(Passports, PassOverWhatIsNotUnderstood) {
  for (const char* event : {"{}", "[]", R"({"event":7,"sn":"CAM1"})",
                            R"({"event":"stored","sn":"CAM1","plate_id":"x","at_us":"y"})",
                            R"({"event":"published","sn":7})",
                            R"({"event":"handed_over","sn":"CAM1","topic":"NONE","body":7})",
                            R"({"event":"announced","sn":"CAM1","topic":[1]})"}) {
    Json::Value json;
    ASSERT_TRUE(Json::String2Json(event, json));
    book_.OnTrace(json);
  }
  EXPECT_TRUE(book_.All().empty());
}

TEST_F(Passports, TellEachStepOnce) {
  Told("stored", R"("plate_id":7)");
  AtTheBroker("ivs_result", Published(7));
  EXPECT_THAT(heard_, ElementsAre("result/CAM1/7 stored", "result/CAM1/7 at_the_broker"));
}

TEST_F(Passports, TakeTheRecordOfAStoredResultFromTheCamera) {
  Told("published", R"("name":"ivs_result","tag":16,"publication":4,"plate_id":7)");
  book_.OnStoredRecord("CAM1", Record(7, "AB12345"), Next());
  EXPECT_EQ(Of("result/CAM1/7").plate, "AB12345");
  book_.OnStoredRecord("CAM1", Record(8, "OTHER"), Next());
  EXPECT_EQ(book_.All().size(), 1U);
}

}  // namespace
}  // namespace console
