// libhostcheck.so: a plug-in that a host loads in place of the camera's own. It behaves towards the
// host as that does, tells the program `hostcheck` of every call, and does what the program says.
// It judges nothing but the platform.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <vector>

#include "base_adapter.h"
#include "control_line.h"
#include "platform_check.h"
#include "sys_log.h"
#include "tarvex/dp_client.h"
#include "wire.h"

namespace hostcheck {
namespace {

constexpr unsigned kPoll = 199501;
constexpr unsigned kPublishStep = 199502;
constexpr int kPollPause_ms = 10;

void Complain(const char* what) { __sys_log(3, "hostcheck", __func__, __LINE__, "%s", what); }

/// Runs what may not throw out of the plug-in.
template <class Action>
void Guarded(Action action) {
  try {
    action();
  } catch (const std::exception& failure) {
    Complain(failure.what());
  }
}

Json::Value Event(const char* name) {
  Json::Value event;
  event["event"] = name;
  return event;
}

/// A picture on the camera's disk, for as long as the image function is asked about it.
class Picture {
 public:
  explicit Picture(const std::string& content) {
    const char* directory = getenv("TMPDIR");
    path_ = std::string(directory != nullptr ? directory : "/tmp") + "/hostcheck_XXXXXX";
    const int file = mkstemp(&path_[0]);
    if (file >= 0) {
      close(file);
      std::ofstream(path_, std::ios::binary) << "\xFF\xD8\xFF" << content << "\xFF\xD9";
    }
  }
  ~Picture() { unlink(path_.c_str()); }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class Plugin : public BaseAdapter,
               public sigslot::has_slots<sigslot::single_threaded>,
               public tarvex::MessageHandler {
 public:
  using ImageFunction = std::function<std::string(const std::string&, const std::string&)>;

  Plugin(boost::shared_ptr<tarvex::EventService> events, int id, std::unique_ptr<ControlLine> line)
      : BaseAdapter(events, id), line_(std::move(line)) {
    Tell(Event("create_adapter"));
    m_event_service_->PostDelayed(kPollPause_ms, this, kPoll, nullptr);
  }

  /// What a destructor does; but what is called afterwards is still told.
  void End() {
    Guarded([this] {
      Tell(Event("destory_adapter"));
      platform_check_.reset();
      m_event_service_->Clear(this, kPoll, nullptr);
      m_event_service_->Clear(this, kPublishStep, nullptr);
      SignalPushMessage.disconnect_all();
      disconnect_all();
      image_function_ = nullptr;
      bus_.reset();
      m_event_service_.reset();
    });
  }

  int Initialize(ImageFunction function) override {
    Guarded([&] {
      Tell(Event("Initialize"));
      image_function_ = std::move(function);
      bus_ = tarvex::DpClient::CreateDpClient(m_event_service_,
                                              tarvex::SocketAddress("127.0.0.1", 6101), "adapter");
      if (bus_) {
        bus_->SignalDpMessage.connect(this, &Plugin::OnBusMessage);
      }
    });
    return 0;
  }

  void GetMessageNames(std::set<std::string>& requests, std::set<std::string>& publishes) override {
    Guarded([&] {
      Tell(Event("GetMessageNames"));
      requests.insert(std::begin(kRequests), std::end(kRequests));
      publishes.insert(std::begin(kPublishes), std::end(kPublishes));
    });
  }

  bool SubscribeMessage(const std::string& name) override {
    bool is_subscribed = true;
    Guarded([&] {
      TellName("SubscribeMessage", name);
      if (name == "ivs_result") {
        is_subscribed = bus_ && bus_->ListenMessage(kResultTopic, 0) == 0;
        is_listening_ = is_subscribed;
      } else if (name == "offline_record") {
        Publish(name, kCountTag, 0);
      }
    });
    return is_subscribed;
  }

  void UnsubscribeMessage(const std::string& name) override {
    Guarded([&] {
      TellName("UnsubscribeMessage", name);
      if (name == "ivs_result" && bus_) {
        bus_->RemoveListenMessage(kResultTopic);
        is_listening_ = false;
      }
    });
  }

  bool RequestMessage(const std::string& name, const Json::Value& payload,
                      const std::string& version, Json::Value& /*response*/) override {
    Guarded([&] {
      Json::Value event = Event("RequestMessage");
      event["name"] = name;
      event["payload"] = payload;
      event["version"] = version;
      Tell(event);
    });
    return true;
  }

  void OnMQTTDisconnected() override {
    Guarded([this] { Tell(Event("OnMQTTDisconnected")); });
  }

  void OnMQTTConnected() override {
    Guarded([this] { Tell(Event("OnMQTTConnected")); });
  }

  void OnMessagePublished(unsigned long long tag) override {
    Guarded([&] {
      Json::Value event = Event("OnMessagePublished");
      event["tag"] = Json::UInt64{tag};
      Tell(event);
    });
  }

  void OnMessage(tarvex::Message* message) override {
    Guarded([&] {
      if (message->message_id == kPoll) {
        Poll();
      } else if (message->message_id == kPublishStep) {
        PublishNext();
      }
    });
  }

 private:
  /// Tells the program, with what is looked at in every call. Any thread: a host that calls on
  /// another one is what is looked for.
  void Tell(Json::Value event) {
    const std::lock_guard<std::mutex> lock(mutex_);
    event["thread"] = Json::Int64{syscall(SYS_gettid)};
    event["is_waiting"] = is_waiting_.load();
    line_->Send(event);
  }

  void TellName(const char* event_name, const std::string& name) {
    Json::Value event = Event(event_name);
    event["name"] = name;
    Tell(event);
  }

  void OnBusMessage(boost::shared_ptr<tarvex::DpClient> /*client*/,
                    boost::shared_ptr<tarvex::DpMessage> message) {
    Guarded([&] {
      if (message->method != kResultTopic || message->body.size() != kRecordSize) {
        return;
      }
      std::uint32_t plate_id = 0;
      std::memcpy(&plate_id, &message->body[kPlateIdOffset], sizeof(plate_id));
      const bool is_swallowed = std::exchange(swallows_next_, false);
      Json::Value event = Event("result");
      event["plate_id"] = plate_id;
      event["is_swallowed"] = is_swallowed;
      event["is_listening"] = is_listening_;
      Tell(event);
      if (!is_swallowed) {
        results_.push_back(plate_id);
      }
      m_event_service_->Post(this, kPublishStep, nullptr, false);
    });
  }

  void PublishNext() {
    if (!results_.empty()) {
      const std::uint32_t plate_id = results_.front();
      results_.pop_front();
      Publish("ivs_result", kLiveTag, plate_id);
    }
  }

  void Publish(const std::string& name, unsigned long long tag, std::uint32_t plate_id) {
    const std::string mark = kMarkBegin + std::to_string(++publications_) + kMarkEnd;
    Json::Value payload;
    payload[kMarkMember] = mark;
    Json::Value event = Event("publishes");
    if (tag == kLiveTag || tag == kRedeliveredTag) {
      event["pictures"] = StorePictures(mark);
      Json::Value& result = payload["AlarmInfoPlate"]["result"]["PlateResult"];
      result["plateid"] = plate_id;
      result["imagePath"] = event["pictures"][0];
      result["isoffline"] = tag == kRedeliveredTag ? 1 : 0;
    } else if (tag == kCountTag) {
      payload["body"]["offline_record"] = 0;
    }
    event["name"] = name;
    event["tag"] = Json::UInt64{tag};
    event["plate_id"] = plate_id;
    event["mark"] = mark;
    Tell(event);
    SignalPushMessage(name, payload, "1.0", tag);
  }

  /// Two pictures with one file name, as two results of one second have; null without the function.
  Json::Value StorePictures(const std::string& mark) const {
    Json::Value texts;
    for (const char* part : {"full", "clip"}) {
      if (image_function_) {
        const Picture picture(mark + part);
        texts.append(image_function_(picture.path(), "hostcheck_full.jpg"));
      }
    }
    return texts;
  }

  void Poll() {
    for (const Json::Value& command : line_->Receive()) {
      Do(command);
    }
    m_event_service_->PostDelayed(kPollPause_ms, this, kPoll, nullptr);
  }

  void Do(const Json::Value& command) {
    const std::string what = command["do"].asString();
    if (what == "publish") {
      Publish(command["name"].asString(), command["tag"].asUInt64(), command["plate_id"].asUInt());
    } else if (what == "swallow") {
      swallows_next_ = true;
    } else if (what == "wait") {
      Wait(command["ms"].asInt());
    } else if (what == "check platform") {
      platform_check_ = std::make_unique<PlatformCheck>(
          m_event_service_, bus_, [this](const auto& verdicts) { TellVerdicts(verdicts); });
      platform_check_->Begin();
      return;
    }
    Tell(Event("done"));
  }

  /// Keeps the thread as a request does that is not answered.
  void Wait(int timeout_ms) {
    Json::Value event = Event("waited");
    event["ms"] = 0;
    Tell(Event("waits"));
    if (bus_) {
      is_waiting_ = true;
      event["ms"] = Json::Int64{AskInVain(bus_.get(), timeout_ms).ms};
      is_waiting_ = false;
    }
    Tell(event);
  }

  void TellVerdicts(const PlatformCheck::Verdicts& verdicts) {
    for (const PlatformVerdict& verdict : verdicts) {
      Json::Value event = Event("platform");
      event["check"] = verdict.check;
      event["broken"] = verdict.broken;
      event["is_exercised"] = verdict.is_exercised;
      Tell(event);
    }
    Tell(Event("done"));
  }

  std::mutex mutex_;
  std::unique_ptr<ControlLine> line_;
  std::atomic<bool> is_waiting_{false};  // for an answer of the bus
  ImageFunction image_function_;
  boost::shared_ptr<tarvex::DpClient> bus_;
  std::deque<std::uint32_t> results_;
  bool is_listening_ = false;
  bool swallows_next_ = false;
  int publications_ = 0;
  std::unique_ptr<PlatformCheck> platform_check_;
};

}  // namespace
}  // namespace hostcheck

extern "C" BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService> event_service,
                                       int id) {
  BaseAdapter* adapter = nullptr;
  hostcheck::Guarded([&] {
    std::string error;
    auto line = hostcheck::ControlLine::Connect(&error);
    if (!line) {
      hostcheck::Complain(error.c_str());
    } else if (!event_service) {
      hostcheck::Complain("create_adapter was given no event service");
    } else {
      adapter = new hostcheck::Plugin(event_service, id, std::move(line));
    }
  });
  return adapter;
}

// The object stays, so that a host which calls it once more is found out, and so does the library,
// by the way it is linked.
extern "C" void destory_adapter(BaseAdapter* adapter) {
  static auto* const kept = new std::vector<BaseAdapter*>;
  if (adapter != nullptr) {
    hostcheck::Guarded([&] { kept->push_back(adapter); });
    static_cast<hostcheck::Plugin*>(adapter)->End();
  }
}
