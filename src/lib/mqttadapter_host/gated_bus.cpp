#include "mqttadapter_host/gated_bus.h"

#include <map>
#include <memory>
#include <string>
#include <utility>

#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

namespace mqttadapter_host {
namespace {

class Gated final : public tarvex::DpClient,
                    public sigslot::has_slots<sigslot::single_threaded>,
                    public boost::enable_shared_from_this<Gated> {
 public:
  Gated(boost::shared_ptr<tarvex::DpClient> client, BusGate gate)
      : client_(std::move(client)), gate_(std::move(gate)) {
    client_->SignalDpMessage.connect(this, &Gated::OnMessage);
  }

  int SendRequest(const std::string& type, int flags, const char* data, std::size_t length,
                  std::string* reply, int timeout_ms) override {
    return client_->SendRequest(type, flags, data, length, reply, timeout_ms);
  }

  int ListenMessage(const std::string& topic, int flags) override {
    // Noted before, since the first message may come within the call.
    const bool is_new = topics_.emplace(topic, std::make_shared<Listening>()).second;
    const int result = client_->ListenMessage(topic, flags);
    if (result != 0 && is_new) {
      topics_.erase(topic);
    }
    return result;
  }

  int RemoveListenMessage(const std::string& topic) override {
    topics_.erase(topic);
    return client_->RemoveListenMessage(topic);
  }

 private:
  struct Listening {};  // lives until the topic is left

  void OnMessage(boost::shared_ptr<tarvex::DpClient> /*client*/,
                 boost::shared_ptr<tarvex::DpMessage> message) {
    const auto found = topics_.find(message->method);
    if (found == topics_.end()) {
      return;
    }
    const boost::weak_ptr<Gated> weak_self = shared_from_this();
    const std::weak_ptr<Listening> weak_listening = found->second;
    const BusGate gate = gate_;  // the plug-in may let go of this client in the call
    gate(*message, [weak_self, weak_listening, message] {
      const boost::shared_ptr<Gated> self = weak_self.lock();
      if (self && !weak_listening.expired()) {
        self->SignalDpMessage(self, message);
      }
    });
  }

  const boost::shared_ptr<tarvex::DpClient> client_;
  const BusGate gate_;
  std::map<std::string, std::shared_ptr<Listening>> topics_;
};

}  // namespace

boost::shared_ptr<tarvex::DpClient> GatedBus(boost::shared_ptr<tarvex::DpClient> client,
                                             BusGate gate) {
  return client ? boost::make_shared<Gated>(std::move(client), std::move(gate)) : nullptr;
}

}  // namespace mqttadapter_host
