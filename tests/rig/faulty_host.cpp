// A plug-in that stands between a host and another plug-in, and passes on what the host does with
// one fault, which FAULT names. To the inner plug-in, which INNER_PLUGIN names, it is a faulty
// host.
#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "base_adapter.h"

namespace {

bool Is(const char* fault) {
  const char* wanted = getenv("FAULT");
  return wanted != nullptr && std::string(wanted) == fault;
}

class FaultyHost : public BaseAdapter, public sigslot::has_slots<sigslot::single_threaded> {
 public:
  using ImageFunction = std::function<std::string(const std::string&, const std::string&)>;

  FaultyHost(boost::shared_ptr<tarvex::EventService> events, int id) : BaseAdapter(events, id) {
    void* const library = dlopen(getenv("INNER_PLUGIN"), RTLD_NOW | RTLD_LOCAL);
    destroy_ = reinterpret_cast<decltype(&destory_adapter)>(dlsym(library, "destory_adapter"));
    inner_ =
        reinterpret_cast<decltype(&create_adapter)>(dlsym(library, "create_adapter"))(events, id);
    if (!Is("unconnected")) {
      inner_->SignalPushMessage.connect(this, &FaultyHost::OnPush);
    }
  }

  ~FaultyHost() override {
    if (!Is("undestroyed")) {
      destroy_(inner_);
    }
    if (Is("call after the end")) {
      inner_->OnMQTTDisconnected();
    }
    if (Is("crash at the end")) {
      abort();
    }
  }

  int Initialize(ImageFunction function) override {
    if (Is("names first")) {
      std::set<std::string> names;
      inner_->GetMessageNames(names, names);
    }
    if (Is("initialised twice")) {
      inner_->Initialize(function);
    }
    if (Is("one picture")) {
      return inner_->Initialize([](const std::string&, const std::string& name) { return name; });
    }
    return inner_->Initialize(Is("no image function") ? ImageFunction() : std::move(function));
  }

  void GetMessageNames(std::set<std::string>& requests, std::set<std::string>& publishes) override {
    inner_->GetMessageNames(requests, publishes);
  }

  bool SubscribeMessage(const std::string& name) override { return inner_->SubscribeMessage(name); }
  void UnsubscribeMessage(const std::string& name) override { inner_->UnsubscribeMessage(name); }

  bool RequestMessage(const std::string& name, const Json::Value& payload,
                      const std::string& version, Json::Value& response) override {
    return Is("lost request") ||
           inner_->RequestMessage(name, Is("bare body") ? payload["body"] : payload, version,
                                  response);
  }

  void OnMQTTDisconnected() override {
    if (!Is("loss untold")) {
      inner_->OnMQTTDisconnected();
    }
    if (Is("confirmed after a loss") && is_under_way_) {
      inner_->OnMessagePublished(11);
    }
  }

  void OnMQTTConnected() override { inner_->OnMQTTConnected(); }

  void OnMessagePublished(unsigned long long tag) override {
    is_under_way_ = false;
    if (Is("unconfirmed") && tag == 11) {
      return;
    }
    if (Is("other thread")) {
      std::thread([&] { inner_->OnMessagePublished(tag); }).join();
      return;
    }
    inner_->OnMessagePublished(tag);
    if (Is("confirmed twice") && tag == 11) {
      inner_->OnMessagePublished(tag);
    }
  }

 private:
  void OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
              unsigned long long tag) {
    is_under_way_ = is_under_way_ || tag == 11;
    SignalPushMessage(name, payload, version, tag);
    if (Is("sent twice") && tag == 11) {
      SignalPushMessage(name, payload, version, 13);
    }
    if (Is("confirmed at once") && tag == 11) {
      inner_->OnMessagePublished(tag);
    }
  }

  BaseAdapter* inner_ = nullptr;
  decltype(&destory_adapter) destroy_ = nullptr;
  bool is_under_way_ = false;
};

}  // namespace

BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService> event_service, int id) {
  return new FaultyHost(event_service, id);
}

void destory_adapter(BaseAdapter* adapter) { delete adapter; }
