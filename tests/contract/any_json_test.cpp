// Every request with JSON of every kind in every place, and with every kind of reply:
// nothing is thrown, the contract's result where it fixes one, and the next good
// request works.
#include "adapter_test.h"
#include "support/good_requests.h"

namespace {

const char* const kValues[] = {"null",
                               "true",
                               "false",
                               "0",
                               "-1",
                               "2147483647",
                               "-2147483648",
                               "4294967295",
                               "18446744073709551615",
                               "-9223372036854775808",
                               "0.5",
                               "-1e300",
                               R"("")",
                               R"("x")",
                               R"("\u0000\ud83d\ude00%s%n")",
                               "[]",
                               "[[]]",
                               "[null,1,\"x\",{}]",
                               "{}",
                               R"({"a":{}})",
                               R"({"type":{},"body":[]})"};

const char* const kGarbage[] = {"no json", "{", "[1,", "{\"body\":", "\xFF\xFE", "{}{}"};

/// Calls `visit` for every way to put `value` into one place of `document`, below its
/// root; the places are those of the document itself.
void ForEachPlace(const Json::Value& document, const Json::Value& value,
                  const std::function<void(const Json::Value&)>& visit) {
  if (document.isObject()) {
    for (const std::string& key : document.getMemberNames()) {
      Json::Value changed = document;
      changed[key] = value;
      visit(changed);
      ForEachPlace(document[key], value, [&](const Json::Value& inner) {
        changed[key] = inner;
        visit(changed);
      });
    }
  } else if (document.isArray()) {
    for (Json::ArrayIndex i = 0; i < document.size(); ++i) {
      Json::Value changed = document;
      changed[i] = value;
      visit(changed);
      ForEachPlace(document[i], value, [&](const Json::Value& inner) {
        changed[i] = inner;
        visit(changed);
      });
    }
  }
}

class AnyJson : public AdapterTest, public testing::WithParamInterface<GoodRequest> {
 protected:
  void SetUp() override {
    Start();
    AnswerWell();
  }
  void AnswerWell() {
    if (*GetParam().queue != '\0') {
      Answers(GetParam().queue, GetParam().good_reply);
    }
  }
  /// Sends a payload; fails the test if anything is thrown or the console's reader is.
  bool Send(const Json::Value& payload, const std::string& version = "1.0") {
    bool done = false;
    Console([&] {
      EXPECT_NO_THROW(done = HostRequests(GetParam().name, payload, version));
      EXPECT_NO_THROW(events_->Tick(60000));
    });
    while (BusHeard() != "nothing") {
    }
    while (Published() != "nothing") {
    }
    return done;
  }
  bool SendGood() {
    response_ = Json::Value();
    return Send(Parsed(GetParam().payload));
  }
};

TEST_P(AnyJson, TheGoodRequestIsCarriedOut) { EXPECT_TRUE(SendGood()); }

TEST_P(AnyJson, AsThePayload) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    const Json::Value payload = Parsed(value);
    const bool done = Send(payload);
    if (!payload.isObject()) {
      EXPECT_EQ(done, !GetParam().needs_object);
    }
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, AsTheType) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    Json::Value payload = Parsed(GetParam().payload);
    payload["type"] = Parsed(value);
    EXPECT_EQ(Send(payload), !GetParam().checks_type);
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, InEveryPlaceOfThePayload) {
  const Json::Value good = Parsed(GetParam().payload);
  for (const char* value : kValues) {
    ForEachPlace(good, Parsed(value), [&](const Json::Value& payload) {
      SCOPED_TRACE(Compact(payload));
      Send(payload);
    });
    EXPECT_TRUE(SendGood()) << value;
  }
}

TEST_P(AnyJson, AsTheBodyOfAGoodType) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    Json::Value payload = Parsed(GetParam().payload);
    payload["body"] = Parsed(value);
    Send(payload);
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, AsTheReply) {
  for (const char* value : kValues) {
    for (const int result : {1, 0, -1}) {
      SCOPED_TRACE(value);
      Answers(GetParam().queue, value, result);
      Send(Parsed(GetParam().payload));
      AnswerWell();
      EXPECT_TRUE(SendGood());
    }
  }
}

TEST_P(AnyJson, InEveryPlaceOfTheReply) {
  Json::Value reply;
  if (GetParam().needs_json_reply || *GetParam().good_reply == '{') {
    reply = Parsed(GetParam().good_reply);
  }
  for (const char* value : kValues) {
    ForEachPlace(reply, Parsed(value), [&](const Json::Value& changed) {
      SCOPED_TRACE(Compact(changed));
      Answers(GetParam().queue, Compact(changed));
      Send(Parsed(GetParam().payload));
    });
    AnswerWell();
    EXPECT_TRUE(SendGood()) << value;
  }
}

TEST_P(AnyJson, IsMissedInAReplyWhereItIsNeededOnly) {
  for (const char* garbage : kGarbage) {
    SCOPED_TRACE(garbage);
    Answers(GetParam().queue, garbage);
    EXPECT_EQ(Send(Parsed(GetParam().payload)), !GetParam().needs_json_reply);
    AnswerWell();
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, AsTheResponseOfTheHost) {
  for (const char* value : kValues) {
    SCOPED_TRACE(value);
    response_ = Parsed(value);
    Send(Parsed(GetParam().payload));
    EXPECT_TRUE(SendGood());
  }
}

TEST_P(AnyJson, OfGreatDepthIsSurvived) {
  Json::Value deep;
  for (int i = 0; i < 900; ++i) {
    Json::Value outer(Json::arrayValue);
    outer[0U].swap(deep);
    deep.swap(outer);
  }
  const Json::Value good = Parsed(GetParam().payload);
  ForEachPlace(good, deep, [&](const Json::Value& payload) { Send(payload); });
  Send(deep);
  EXPECT_TRUE(SendGood());
}

TEST_P(AnyJson, UnderAnotherVersionIsRefusedByThoseThatCheckIt) {
  for (const char* version : {"1.1", "", "1", "1.0 ", "2.0"}) {
    response_ = Json::Value();
    EXPECT_EQ(Send(Parsed(GetParam().payload), version), !GetParam().checks_version) << version;
  }
  EXPECT_TRUE(SendGood());
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, AnyJson, testing::ValuesIn(kGoodRequests),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
