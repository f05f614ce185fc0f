// Requests made at random from the contract's schemas, whole and damaged.
#include "rig_test.h"
#include "support/contract.h"
#include "support/random_json.h"

namespace {

std::vector<std::string> RequestNames() {
  std::vector<std::string> names;
  const std::string prefix = "request_";
  const Json::Value& schemas = Contract::Instance().document()["components"]["schemas"];
  for (const std::string& schema : schemas.getMemberNames()) {
    if (schema.compare(0, prefix.size(), prefix) == 0) {
      names.push_back(schema.substr(prefix.size()));
    }
  }
  return names;
}

class GeneratedRequests : public RigTest, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    rig_.StartCamera({"--reboot-seconds", "0"});
    rig_.StartAgent();
    rig_.Ctl({"car"});
    rig_.AwaitMessage("ivs_result");
  }

  /// A request that the contract allows.
  Json::Value Allowed() {
    const std::string schema = "request_" + GetParam();
    const Json::Value& schemas = Contract::Instance().document()["components"]["schemas"];
    for (int tries = 0; tries < 1000; ++tries) {
      Json::Value request = random_.For(schemas[schema]);
      if (Contract::Instance().Violations(schema, request).empty()) {
        // What lets a good request fail is tested elsewhere.
        request.removeMember("expires_ms");
        request.removeMember("idempotency_key");
        return request;
      }
    }
    throw std::runtime_error("no request that " + schema + " allows");
  }

  /// The one response to a request, whatever it says.
  Json::Value ResponseTo(const std::string& text) {
    rig_.cloud->Publish(rig_.Topic("request/" + GetParam()), text);
    const auto response = rig_.cloud->AwaitTopic(rig_.Topic("response/" + GetParam()));
    EXPECT_TRUE(response) << text;
    return response ? ParseJson(response->payload) : Json::Value();
  }

  static constexpr int kRequests = 25;
  RandomJson random_{Contract::Instance().document(), 20261121};
};

TEST_P(GeneratedRequests, ThatTheContractAllowsAreNotRefused) {
  // While the camera reboots it refuses, so there is one only.
  const int requests = GetParam() == "reboot_dev" ? 1 : kRequests;
  for (int i = 0; i < requests; ++i) {
    Json::Value request = Allowed();
    if (GetParam() == "get_image_by_id") {
      request["payload"]["body"]["id"] = 1;  // a schema cannot say which there are
    }
    const std::string text = Compact(request);
    const Json::Value response = ResponseTo(text);
    EXPECT_EQ(response["result"], true) << text << "\n" << response;
    EXPECT_EQ(response["id"], request["id"]) << text;
  }
}

TEST_P(GeneratedRequests, ThatAreDamagedGetOneResponseAndHarmNothing) {
  for (int i = 0; i < kRequests; ++i) {
    const Json::Value response = ResponseTo(random_.Damaged(Allowed()));
    EXPECT_TRUE(response["result"].isBool()) << response;
  }
  EXPECT_TRUE(WaitUntil([this] { return rig_.Request("get_sn")["result"].asBool(); }));
  EXPECT_TRUE(rig_.agent->IsRunning());
  EXPECT_TRUE(rig_.camera->IsRunning());
}

INSTANTIATE_TEST_SUITE_P(Rig, GeneratedRequests, testing::ValuesIn(RequestNames()),
                         [](const auto& test) { return test.param; });

}  // namespace
