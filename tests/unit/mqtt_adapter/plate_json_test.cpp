// The packers one by one, and records that are not there.
#include "adapter_fixture.h"

namespace {

class PlateJson : public AdapterFixture {
 protected:
  qex::IVS_RESULT_PARAM record_ = {};
};

TEST_F(PlateJson, PackersAnswerAsTheyAlwaysDid) {
  Start();
  Json::Value out;
  EXPECT_EQ(adapter_.PackPlateLicenseInfo(&record_, out, 0), 200);
  EXPECT_EQ(adapter_.PackPlateTimestapInfo(&record_.plate, out), 200);
  EXPECT_EQ(adapter_.PackPlateDetailInfo(&record_.plate, out), 200);
  EXPECT_EQ(adapter_.PackPlateLocationInfo(&record_.plate, out), 200);
  EXPECT_EQ(adapter_.PackPlateExtInfo(&record_.plate, out), 200);
  EXPECT_EQ(adapter_.PackPlateImgInfo(&record_, out), 0);
}

TEST_F(PlateJson, KeepsTheOutputsThatACallerPlaced) {
  for (const char* outputs : {"[1,2]", "[]", "5", R"({"a":1})", "false"}) {
    Json::Value out = Parsed(std::string(R"({"PlateResult":{"gioouts":)") + outputs + "}}");
    adapter_.PackPlateLicenseInfo(&record_, out, 0);
    EXPECT_EQ(Compact(out["PlateResult"]["gioouts"]), outputs);
  }
}

TEST_F(PlateJson, MakesAnEmptyListOfOutputsThatAreNull) {
  for (const char* before : {"null", R"({"PlateResult":{"gioouts":null}})"}) {
    Json::Value out = Parsed(before);
    adapter_.PackPlateLicenseInfo(&record_, out, 0);
    EXPECT_EQ(Compact(out["PlateResult"]["gioouts"]), "[]");
  }
}

TEST_F(PlateJson, PacksBesideWhatIsThere) {
  Json::Value out = Parsed(R"({"PlateResult":{"kept":1}})");
  adapter_.PackPlateLicenseInfo(&record_, out, 1);
  EXPECT_EQ(out["PlateResult"]["kept"], 1);
  EXPECT_EQ(out["PlateResult"]["isoffline"], 1);
}

TEST_F(PlateJson, WithoutAnImageFunctionMovesNoCounter) {
  Start(false);
  Json::Value out;
  adapter_.PackPlateImgInfo(&record_, out);
  EXPECT_TRUE(out.isNull());
  qex::MQTTAdapter other(events_, 1);
  std::vector<std::string> names;
  other.Initialize([&](const std::string&, const std::string& name) {
    names.push_back(name);
    return "";
  });
  other.PackPlateImgInfo(&record_, out);
  adapter_.PackPlateImgInfo(&record_, out);
  other.PackPlateImgInfo(&record_, out);
  // The counter is the process's: only the distance of its values is this test's own.
  const auto number = [&](size_t i) {
    return std::stoul(names[i].substr(names[i].find("_0_") + 3));
  };
  ASSERT_EQ(names.size(), 4U);
  for (size_t i = 1; i < names.size(); ++i) {
    EXPECT_EQ(number(i), number(i - 1) + 1);
  }
}

TEST_F(PlateJson, ARecordThatIsNotThereDoesNothing) {
  Start();
  adapter_.OnIvsResultEvent(nullptr, 0);
  adapter_.OnIvsResultEvent(nullptr, 1);
  adapter_.SendIvsResultEvent(nullptr);
  EXPECT_EQ(Published(), "nothing");
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(PlateJson, ARecordIsPublishedByWhoeverHandsItOver) {
  Start();
  adapter_.OnIvsResultEvent(&record_, 2);  // anything but 0 is re-delivered
  EXPECT_EQ(Published().substr(0, 14), "ivs_result 16 ");
  adapter_.SendIvsResultEvent(&record_);
  EXPECT_EQ(Published().substr(0, 19), "get_last_result 26 ");
}

TEST_F(PlateJson, TheLastResultNeedsNoArgument) {
  Start();
  Answers("BUS_GET_IVS_INFO", std::string(552, '\0'));
  EXPECT_EQ(adapter_.SendLastResult(Parsed("[5]")), 1);
  EXPECT_EQ(BusHeard(), R"(BUS_GET_IVS_INFO {"type":"get_last_ivs"} timeout=3000)");
  Published();
}

TEST_F(PlateJson, TheLastResultIsNotAskedForInTextThatCannotBeMade) {
  Start();
  fake::ThePlatform().serialising_fails = true;
  EXPECT_EQ(adapter_.SendLastResult(Json::Value()), 0);
  EXPECT_EQ(BusHeard(), "nothing");
}

TEST_F(PlateJson, MessagesThatAreNotThereDoNothing) {
  Start();
  adapter_.OnMessage(nullptr);
  adapter_.OnDpMessage(nullptr, nullptr);
  EXPECT_TRUE(LogLines().empty());
}

}  // namespace
