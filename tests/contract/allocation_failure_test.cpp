// Memory that runs out at any moment: each allocation of an entry of the plug-in fails in turn, by
// itself and with all that follow it. Nothing is thrown, nothing half-made is sent, and what comes
// next is as ever. That nothing leaks is seen under ./dev sanitize.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "adapter_test.h"
#include "support/failing_allocations.h"
#include "support/good_requests.h"

namespace {

class AllocationFailure : public AdapterTest,
                          public testing::WithParamInterface<FailingAllocation::Kind> {
 protected:
  using Lines = std::vector<std::string>;

  void SetUp() override {
    image_func_ = [](const std::string& source, const std::string&) { return source; };
    LoadLibrary();
  }
  void TearDown() override { Sent(); }

  /// Another camera, whose services answer well, and a new adapter on it.
  void Renew() {
    if (adapter_ != nullptr) {
      destroy_(adapter_);
    }
    NewPlatform();
    CreateAdapter();
    adapter_->Initialize(image_func_);
  }
  void NewPlatform() {
    fake::ResetPlatform();
    events_.reset(new fake::EventService);
    platform().databases["skvdb"]["net_rj45"] = R"({"ip":"192.168.1.2"})";
    platform().databases["skvdb"]["dev_name"] = "R2F0ZQ==";
    platform().camera = CameraThatAnswers;
  }

  static fake::BusAnswer CameraThatAnswers(const fake::BusRequest& request) {
    const fake::Undisturbed service;
    const auto is = [&](const char* type) { return request.data.find(type) != std::string::npos; };
    if (is("STP_GET_MQTT_OFFLINE_COUNT")) {
      return {1, R"({"body":{"offline_count":2}})"};
    }
    if (is("STP_SELECT_MQTT_OFFLINE_RECORD")) {
      return {1, (RecordBytes().PlateId(71).str() + "1234") +
                     (RecordBytes().PlateId(72).str() + "1234")};
    }
    if (is("get_last_ivs")) {
      return {1, RecordBytes().PlateId(5).str()};
    }
    return {1,
            R"({"body":{"img_path":"/a","gpio_out_status":1,"filter_enable":1,"led_bright_mode":1,)"
            R"("media_voice_time_ctrl":{"a":1},"led_bright_time_ctrl":[1]}})"};
  }

  /// All that was sent and published since, a line each.
  Lines Sent() {
    Lines lines;
    for (std::string line = BusHeard(); line != "nothing"; line = BusHeard()) {
      lines.push_back(line);
    }
    for (std::string line = Published(); line != "nothing"; line = Published()) {
      const std::size_t time = line.find(R"("timestamp":)");
      lines.push_back(line.substr(0, time));  // the present one, at the end
    }
    return lines;
  }

  void Arrive(unsigned int plate_id) {
    Deliver("BUS_SRV_IVS_RESULT", RecordBytes().Text(0, "A12345").PlateId(plate_id));
  }
  void Request(const std::string& name, const std::string& payload) {
    Json::Value response;
    adapter_->RequestMessage(name, Parsed(payload), "1.0", response);
  }
  void Push() {
    Request("check_offline_record",
            R"({"type":"check_offline_record","body":{"enable":"push","max_count":5}})");
  }

  /// What a plate result makes the adapter send, from the bus to its confirmation. No other waits.
  Lines GoodResult() {
    events_->pending.clear();
    for (int left = 21; left > 0; --left) {
      adapter_->OnMessagePublished(11);
    }
    Sent();
    Arrive(9);
    RunPosted();
    adapter_->OnMessagePublished(11);
    return Sent();
  }

  struct Scene {
    std::function<void()> prepare;
    std::function<void()> entry;  ///< whose allocations fail
    std::function<void()> next;   ///< after it, with memory; sends what it ever sends
    Lines may_send = {};          ///< what it sends for want of memory only
    std::size_t spared = 0;       ///< allocations before the plug-in is entered
  };

  /// Has each allocation of a scene fail in turn: the first time that its entry is used, then one
  /// after that.
  /// @return what was wrong first; empty if nothing was.
  std::string Play(const Scene& scene) {
    std::string wrong;
    Console([&] {
      for (const bool is_used : {false, true}) {
        if (is_used && GetParam() == FailingAllocation::kAllFromThere) {
          break;  // takes its time, and leaves what the first use leaves
        }
        const auto begin = [&] {
          Renew();
          for (int left = is_used ? 2 : 1; left > 0; --left) {
            scene.prepare();
            Sent();
            if (left > 1) {
              scene.entry();
            }
          }
        };
        begin();
        scene.entry();
        Lines whole = Sent();
        whole.insert(whole.end(), scene.may_send.begin(), scene.may_send.end());
        scene.next();
        const Lines next = Sent();
        const Lines result = GoodResult();
        std::size_t number = scene.spared;
        std::size_t count = number;
        while (wrong.empty() && ++number <= count + 1) {
          begin();
          wrong = PlayOnce(scene, number, &count, whole, next, result);
        }
      }
    });
    return wrong;
  }

  std::string PlayOnce(const Scene& scene, std::size_t number, std::size_t* count,
                       const Lines& whole, const Lines& next, const Lines& result) {
    const std::string at = " with allocation " + std::to_string(number);
    try {
      const FailingAllocation failing(number, GetParam());
      scene.entry();
      *count = failing.count();
    } catch (...) {
      return "thrown" + at;
    }
    for (const std::string& line : Sent()) {
      if (std::find(whole.begin(), whole.end(), line) == whole.end()) {
        return "half-made" + at + ": " + line;
      }
    }
    scene.next();
    const Lines then = Sent();
    if (then != next) {
      return "another next" + at + ": " + testing::PrintToString(then) + " instead of " +
             testing::PrintToString(next);
    }
    const Lines last = GoodResult();
    return last == result ? "" : "another result" + at + ": " + testing::PrintToString(last);
  }

  /// The scene of a bus message.
  Scene Arrival(const std::string& topic, const std::string& body) {
    Renew();
    const boost::shared_ptr<tarvex::DpMessage> message(new tarvex::DpMessage{topic, body});
    std::size_t of_emission = 0;
    {
      const FailingAllocation counting(0, FailingAllocation::kOne);
      platform().bus->SignalDpMessage(nullptr, nullptr);
      of_emission = counting.count();
    }
    const auto entry = [this, message] { platform().bus->SignalDpMessage(nullptr, message); };
    return {[] {}, entry, entry, {}, of_emission};
  }
};

TEST_P(AllocationFailure, ReachesThePlugin) {
  const char* preloaded = getenv("LD_PRELOAD");
  if (preloaded != nullptr && strstr(preloaded, "vgpreload") != nullptr) {
    GTEST_SKIP() << "valgrind has an operator new of its own";
  }
  Renew();
  const FailingAllocation failing(1, GetParam());
  adapter_->SubscribeMessage("offline_record");
  EXPECT_GT(failing.count(), 0U);
}

TEST_P(AllocationFailure, WhileAResultArrives) {
  EXPECT_EQ(Play(Arrival("BUS_SRV_IVS_RESULT", RecordBytes().PlateId(4))), "");
}

TEST_P(AllocationFailure, WhileAResultIsPublished) {
  EXPECT_EQ(Play({[this] { Arrive(4); }, [this] { RunPosted(); },
                  [this] { adapter_->OnMessagePublished(11); }}),
            "");
}

TEST_P(AllocationFailure, WhileAResultIsConfirmed) {
  EXPECT_EQ(Play({[this] { Arrive(4); }, [this] { adapter_->OnMessagePublished(11); }, [] {}}), "");
}

TEST_P(AllocationFailure, WhileALaneControlResultArrives) {
  EXPECT_EQ(Play(Arrival("BUS_SRV_LANECTRL_RESULT",
                         R"({"uid":1,"device_info":{"a":1},"full_image":[{"full_image_id":1}],)"
                         R"("small_image":[{"small_image_id":2}],"results":[{"result_id":3}]})")),
            "");
}

TEST_P(AllocationFailure, WhileAnInputChanges) {
  EXPECT_EQ(Play(Arrival("EVT_SRV_EXTERNAL_TRIGGER", R"({"body":{"flag":1,"source":2}})")), "");
}

TEST_P(AllocationFailure, WhileSerialDataArrives) {
  EXPECT_EQ(Play(Arrival("EVS_RS485_READ", R"({"body":{"source":1,"rs485_data":"YQ=="}})")), "");
}

TEST_P(AllocationFailure, WhileTheAddressChanges) {
  EXPECT_EQ(Play(Arrival("SYS_SRV_IP_CHANGED", R"({"ip":"192.168.1.2"})")), "");
}

TEST_P(AllocationFailure, WhileTheNameChanges) {
  EXPECT_EQ(Play(Arrival("SS_DEV_NAME_CHANGED", R"({"title":"Gate"})")), "");
}

TEST_P(AllocationFailure, WhileAnotherAddressIsRead) {
  const std::string name = "get_last_result";
  const Json::Value payload = Parsed(R"({"type":"get_last_result"})");
  const std::string version = "1.0";
  Json::Value response;
  const auto entry = [&] { adapter_->RequestMessage(name, payload, version, response); };
  Renew();
  entry();
  const Lines with_old_address = Sent();
  const auto prepare = [this] {
    platform().databases["skvdb"]["net_rj45"] = R"({"ip":"10.1.2.3","mask":"1"})";
  };
  EXPECT_EQ(Play({prepare, entry, entry, with_old_address}), "");
}

TEST_P(AllocationFailure, WhileAStoredResultIsFetchedAndPublished) {
  EXPECT_EQ(Play({[this] { Push(); }, [this] { RunPosted(); },
                  [this] {
                    events_->pending.clear();
                    Push();
                    Sent();
                    RunPosted();
                    // Which it is; whether it is there already is another matter.
                    platform().requests.clear();
                  }}),
            "");
}

TEST_P(AllocationFailure, WhileAStoredResultIsConfirmed) {
  EXPECT_EQ(Play({[this] {
                    Push();
                    RunPosted();
                  },
                  [this] { adapter_->OnMessagePublished(16); }, [] {}}),
            "");
}

/// A reply that cannot be read is no JSON, as far as the plug-in is told.
const std::vector<std::string> kAnswersForWantOfMemory = {
    R"(white_list_operator 22 {"operator_type":"update_or_add","state_code":500})",
    R"(bind_device_list 18 {"body":null,"state_code":200})",
    R"(agent_rtsp_url 19 {"body":null,"state_code":200})",
    R"(agent_talkback_port 20 {"body":null,"state_code":200})"};

TEST_P(AllocationFailure, WhileARequestIsCarriedOut) {
  for (const GoodRequest& good : kGoodRequests) {
    const std::string name = good.name;
    const Json::Value payload = Parsed(good.payload);
    const std::string version = "1.0";
    Json::Value response;
    const auto entry = [&] { adapter_->RequestMessage(name, payload, version, response); };
    EXPECT_EQ(Play({[&] { response = Json::Value(); }, entry,
                    [&] {
                      response = Json::Value();
                      entry();
                    },
                    kAnswersForWantOfMemory}),
              "")
        << name;
  }
}

TEST_P(AllocationFailure, WhileTheCountIsTold) {
  const std::string name = "offline_record";
  const auto entry = [&] { adapter_->SubscribeMessage(name); };
  EXPECT_EQ(Play({[] {}, entry, entry, {R"(offline_record 17 {"body":{"offline_record":0}})"}}),
            "");
}

TEST_P(AllocationFailure, WhileANameIsSubscribedAndTheLinkChanges) {
  const std::string name = "ivs_result";
  EXPECT_EQ(Play({[] {},
                  [&] {
                    adapter_->SubscribeMessage(name);
                    adapter_->UnsubscribeMessage(name);
                    adapter_->OnMQTTConnected();
                    adapter_->OnMQTTDisconnected();
                  },
                  [] {}}),
            "");
}

TEST_P(AllocationFailure, WhileTheNamesAreAskedFor) {
  std::set<std::string> requests;
  std::set<std::string> publishes;
  EXPECT_EQ(Play({[] {}, [&] { adapter_->GetMessageNames(requests, publishes); }, [] {}}), "");
}

TEST_P(AllocationFailure, WhileTheAdapterIsMade) {
  std::size_t count = 1;
  for (std::size_t number = 1; count + 1 >= number; ++number) {
    NewPlatform();
    const FailingAllocation failing(number, GetParam());
    EXPECT_NO_THROW(adapter_ = create_(events_, 7));
    count = failing.count();
    EXPECT_EQ(adapter_ == nullptr, number <= count) << "with allocation " << number;
  }
}

TEST_P(AllocationFailure, WhileItIsInitialized) {
  std::vector<int> results;
  Console([&] {
    std::size_t count = 1;
    for (std::size_t number = 1; count + 1 >= number; ++number) {
      Renew();
      destroy_(adapter_);
      NewPlatform();
      CreateAdapter();
      auto images = image_func_;
      results.push_back(-1);
      const FailingAllocation failing(number, GetParam());
      results.back() = adapter_->Initialize(std::move(images));
      count = failing.count();
    }
  });
  EXPECT_EQ(results.back(), 0);
  EXPECT_EQ(std::set<int>(results.begin(), results.end()), (std::set<int>{0, 1}));
}

TEST_P(AllocationFailure, WhileItIsDestroyed) {
  Console([this] {
    std::size_t count = 1;
    for (std::size_t number = 1; count + 1 >= number; ++number) {
      Renew();
      GoodResult();
      Arrive(4);
      const FailingAllocation failing(number, GetParam());
      destroy_(std::exchange(adapter_, nullptr));
      count = failing.count();
    }
  });
}

INSTANTIATE_TEST_SUITE_P(OfMemory, AllocationFailure,
                         testing::Values(FailingAllocation::kOne, FailingAllocation::kAllFromThere),
                         [](const auto& param) {
                           return param.param == FailingAllocation::kOne ? "OneAllocation"
                                                                         : "AllFromThere";
                         });

}  // namespace
