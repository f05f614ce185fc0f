#include <cstring>

#include "adapter_test.h"

namespace {

class SetCloudCtrl : public AdapterTest {
 protected:
  void SetUp() override {
    Start();
    Answers("BUS_REQUEST_MESSAGE", "{}");
  }
  bool Ctrl(const std::string& body, const std::string& version = "1.0") {
    return CloudSends("set_cloud_ctrl", R"({"type":"set_cloud_ctrl","body":)" + body + "}",
                      version);
  }
  bool Move(int code) { return Ctrl(R"({"type":)" + std::to_string(code) + "}"); }
  static std::string Moved(int dir, int degree) {
    return R"(BUS_REQUEST_MESSAGE {"body":{"degree":)" + std::to_string(degree) + R"(,"dir":)" +
           std::to_string(dir) +
           R"(},"module":"BUS_REQUEST_MESSAGE","type":"set_cloud_ctrl"} timeout=1000)";
  }
  static std::string Stopped(int dir) {
    return "BUS_REQUEST_MESSAGE " + StopText(dir) + " timeout=1000";
  }
  static std::string StopText(int dir) {
    return R"({"type":"set_cloud_ctrl","module":"BUS_REQUEST_MESSAGE","body":{"dir":)" +
           std::to_string(dir) + R"(,"degree":0}})";
  }
};

TEST_F(SetCloudCtrl, TranslatesEveryMovementCode) {
  const std::vector<std::vector<int>> rows = {// code, dir, degree
                                              {2, 2, 2},   {3, 2, 2},   {4, 4, 2},   {5, 4, 2},
                                              {8, 8, 0},   {16, 32, 2}, {17, 32, 2}, {32, 16, 2},
                                              {33, 16, 2}, {64, 64, 0}};
  for (const auto& row : rows) {
    EXPECT_TRUE(Move(row[0]));
    EXPECT_EQ(BusHeard(), Moved(row[1], row[2])) << row[0];
  }
}

TEST_F(SetCloudCtrl, StopsATimedMoveAfterHalfASecond) {
  const std::vector<std::pair<int, int>> rows = {{2, 8}, {4, 8}, {16, 64}, {32, 64}};
  for (const auto& [code, stop] : rows) {
    EXPECT_TRUE(Move(code));
    BusHeard();
    events_->Tick(499);
    EXPECT_EQ(BusHeard(), "nothing");
    events_->Tick(1);
    EXPECT_EQ(BusHeard(), Stopped(stop)) << code;
    EXPECT_EQ(Waiting(), "nothing");
  }
}

TEST_F(SetCloudCtrl, PostsTheStopWithData) {
  Move(2);
  BusHeard();
  EXPECT_EQ(Waiting(), "199405@500");
  EXPECT_TRUE(events_->pending.front().message.data);
  EXPECT_EQ(LoggedBy("DoCmdCtrlCloud", 6, "set_cloud_ctrl PostDelayed:500,dir:2"), 1U);
}

TEST_F(SetCloudCtrl, LetsOtherMovesRun) {
  for (const int code : {3, 5, 8, 17, 33, 64}) {
    EXPECT_TRUE(Move(code));
    BusHeard();
    EXPECT_EQ(Waiting(), "nothing") << code;
  }
}

TEST_F(SetCloudCtrl, LogsTheRequestAndTheDelay) {
  Move(16);
  BusHeard();
  EXPECT_EQ(LogLines(6),
            (std::vector<std::string>{R"(set_cloud_ctrl senddp:{"body":{"degree":2,"dir":32},)"
                                      R"("module":"BUS_REQUEST_MESSAGE","type":"set_cloud_ctrl"})",
                                      "set_cloud_ctrl PostDelayed:500,dir:16"}));
}

TEST_F(SetCloudCtrl, AnyNewMoveCancelsTheStopBeforeIt) {
  for (const int code : {3, 5, 8, 17, 33, 64}) {
    Move(2);
    BusHeard();
    Move(code);
    BusHeard();
    events_->Tick(10000);
    EXPECT_EQ(BusHeard(), "nothing") << code;
  }
}

TEST_F(SetCloudCtrl, HasOneStopPendingAtMost) {
  Move(2);
  events_->Tick(300);
  Move(16);
  BusHeard();
  BusHeard();
  EXPECT_EQ(Waiting(), "199405@800");
  events_->Tick(499);
  EXPECT_EQ(BusHeard(), "nothing");
  events_->Tick(1);
  EXPECT_EQ(BusHeard(), Stopped(64));
}

TEST_F(SetCloudCtrl, CodeZeroWithAValueSetsTheDelay) {
  EXPECT_TRUE(Ctrl(R"({"type":0,"value":2000})"));
  EXPECT_EQ(LoggedBy("DoCmdCtrlCloud", 6, "set_cloud_ctrl set timeout:2000"), 1U);
  EXPECT_EQ(BusHeard(), "nothing");
  Move(4);
  BusHeard();
  EXPECT_EQ(Waiting(), "199405@2000");
  EXPECT_EQ(Logged(6, "set_cloud_ctrl PostDelayed:2000,dir:4"), 1U);
}

TEST_F(SetCloudCtrl, KeepsTheDelayUntilItIsSetAgain) {
  Ctrl(R"({"type":0,"value":2000})");
  for (int i = 0; i < 2; ++i) {
    Move(2);
    BusHeard();
    EXPECT_EQ(Waiting(), "199405@2000");
    Move(1);
  }
}

TEST_F(SetCloudCtrl, TakesAnyDelay) {
  for (const int delay_ms : {0, -250}) {
    EXPECT_TRUE(Ctrl(R"({"type":0,"value":)" + std::to_string(delay_ms) + "}"));
    Move(2);
    BusHeard();
    EXPECT_EQ(Waiting(), "199405@" + std::to_string(delay_ms));
  }
}

TEST_F(SetCloudCtrl, SettingTheDelayKeepsThePendingStop) {
  Move(2);
  BusHeard();
  Ctrl(R"({"type":0,"value":2000})");
  EXPECT_EQ(Waiting(), "199405@500");
}

TEST_F(SetCloudCtrl, AValueBesideAnotherCodeIsNoDelay) {
  Ctrl(R"({"type":2,"value":2000})");
  EXPECT_EQ(BusHeard(), Moved(2, 2));
  EXPECT_EQ(Waiting(), "199405@500");
}

TEST_F(SetCloudCtrl, CodeOneCancelsThePendingStopOnly) {
  Move(2);
  BusHeard();
  ForgetLogs();
  EXPECT_TRUE(Move(1));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "nothing");
  EXPECT_EQ(LogLines().size(), 1U);  // the request's own line
}

TEST_F(SetCloudCtrl, AnyOtherCodeDoesNothing) {
  Move(2);
  BusHeard();
  ForgetLogs();
  const std::vector<int> codes = {0, 6, 7, 9, 15, 18, 31, 34, 63, 65, 128, -2};
  for (const int code : codes) {
    EXPECT_TRUE(Move(code)) << code;
  }
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "199405@500");
  EXPECT_EQ(LogLines().size(), codes.size());
}

TEST_F(SetCloudCtrl, GoesByTheReplyNotByTheResultOfTheSend) {
  for (const int result : {0, -1}) {
    for (const char* reply : {"{}", "null", "5", "[]"}) {
      Answers("BUS_REQUEST_MESSAGE", reply, result);
      EXPECT_TRUE(Move(2));
      BusHeard();
      EXPECT_EQ(Waiting(), "199405@500");
      Move(1);
    }
  }
}

TEST_F(SetCloudCtrl, AMoveWithoutAJsonReplyFailsAndHasNoStop) {
  for (const char* reply : {"", "no json", "{"}) {
    Answers("BUS_REQUEST_MESSAGE", "{}");
    Move(16);
    BusHeard();
    Answers("BUS_REQUEST_MESSAGE", reply);
    ForgetLogs();
    EXPECT_FALSE(Move(2));
    EXPECT_EQ(BusHeard(), Moved(2, 2));
    EXPECT_EQ(Waiting(), "nothing");  // the stop of the move before is gone as well
    EXPECT_EQ(LogLines(3).size(), 0U);
    EXPECT_EQ(LogLines(6).size(), 1U);
  }
}

TEST_F(SetCloudCtrl, ASerialisationThatFailsKeepsThePendingStop) {
  Move(2);
  BusHeard();
  ForgetLogs();
  platform().serialising_fails = true;
  EXPECT_FALSE(Move(3));
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(Waiting(), "199405@500");
  EXPECT_EQ(LoggedBy("DoCmdCtrlCloud", 6, "Json2String is error"), 1U);
}

TEST_F(SetCloudCtrl, RefusesAnotherVersionWithoutALine) {
  Move(2);
  BusHeard();
  ForgetLogs();
  EXPECT_FALSE(Ctrl(R"({"type":3})", "1.1"));
  EXPECT_FALSE(Ctrl("{}", ""));
  EXPECT_EQ(LogLines().size(), 2U);
  EXPECT_EQ(Waiting(), "199405@500");
}

TEST_F(SetCloudCtrl, RefusesARequestWithoutACode) {
  for (const char* payload :
       {"{}", "null", "[]", "5", R"({"type":"set_cloud_ctrl"})", R"({"body":{}})",
        R"({"body":null})", R"({"body":[]})", R"({"body":2})", R"({"body":{"value":5}})"}) {
    ForgetLogs();
    EXPECT_FALSE(CloudSends("set_cloud_ctrl", payload)) << payload;
    EXPECT_EQ(LoggedBy("DoCmdCtrlCloud", 3, "set_cloud_ctrl json is err"), 1U) << payload;
  }
}

TEST_F(SetCloudCtrl, DoesNotLookAtThePayloadsOwnType) {
  for (const char* payload : {R"({"body":{"type":3}})", R"({"type":5,"body":{"type":3}})",
                              R"({"type":"other","body":{"type":3}})"}) {
    EXPECT_TRUE(CloudSends("set_cloud_ctrl", payload)) << payload;
    EXPECT_EQ(BusHeard(), Moved(2, 2));
  }
}

TEST_F(SetCloudCtrl, RefusesACodeOrADelayThatIsNoNumber) {
  for (const char* body : {R"({"type":"2"})", R"({"type":[]})", R"({"type":{}})",
                           R"({"type":4294967298})", R"({"type":0,"value":"5"})"}) {
    ForgetLogs();
    EXPECT_FALSE(Ctrl(body)) << body;
    EXPECT_EQ(LogLines(3).size(), 1U) << body;
  }
  Move(2);
  BusHeard();
  EXPECT_EQ(Waiting(), "199405@500");
}

TEST_F(SetCloudCtrl, LeavesTheResponseAsItIs) {
  response_["kept"] = 1;
  Move(2);
  BusHeard();
  Ctrl(R"({"type":0,"value":5})");
  EXPECT_EQ(Compact(response_), R"({"kept":1})");
}

TEST_F(SetCloudCtrl, AStopWhoseReplyIsNoJsonIsLoggedWithTheTextSent) {
  for (const char* reply : {"", "no json"}) {
    Answers("BUS_REQUEST_MESSAGE", "{}");
    Move(4);
    BusHeard();
    ForgetLogs();
    Answers("BUS_REQUEST_MESSAGE", reply);
    events_->Tick(500);
    EXPECT_EQ(BusHeard(), Stopped(8));
    EXPECT_EQ(
        LoggedBy("OnMessage", 3, "TCP_SESSION_STOP_CLOUDCTRL message is error:" + StopText(8)), 1U);
    EXPECT_EQ(Waiting(), "nothing");
  }
}

TEST_F(SetCloudCtrl, AStopThatIsAnsweredIsNotLogged) {
  Move(2);
  BusHeard();
  ForgetLogs();
  Answers("BUS_REQUEST_MESSAGE", "5", -1);
  events_->Tick(500);
  EXPECT_EQ(BusHeard(), Stopped(8));
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(SetCloudCtrl, AStopOfAnotherMoveIsLoggedAndNotSent) {
  Move(2);
  BusHeard();
  ForgetLogs();
  // The code is the one field behind the base of the message's data.
  const int32_t code = 3;
  tarvex::MessageData* data = events_->pending.front().message.data.get();
  memcpy(reinterpret_cast<char*>(data) + sizeof(tarvex::MessageData), &code, sizeof(code));
  events_->Tick(500);
  EXPECT_EQ(BusHeard(), "nothing");
  EXPECT_EQ(LoggedBy("OnMessage", 3, "TCP_SESSION_STOP_CLOUDCTRL message is error:3"), 1U);
}

class SetCloudCtrlWithoutBus : public AdapterTest {};

TEST_F(SetCloudCtrlWithoutBus, RefusesMovesButTakesADelay) {
  platform().has_bus = false;
  Start();
  EXPECT_FALSE(CloudSends("set_cloud_ctrl", R"({"body":{"type":2}})"));
  EXPECT_EQ(Waiting(), "nothing");
  EXPECT_TRUE(CloudSends("set_cloud_ctrl", R"({"body":{"type":0,"value":5}})"));
}

}  // namespace
