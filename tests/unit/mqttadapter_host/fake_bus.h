// A bus client as a platform has it, which hears what a test says.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>

#include "tarvex/dp_client.h"

namespace mqttadapter_host {

class FakeBus : public tarvex::DpClient, public boost::enable_shared_from_this<FakeBus> {
 public:
  int SendRequest(const std::string& type, int, const char* data, std::size_t length,
                  std::string* reply, int timeout_ms) override {
    calls.push_back(type + " " + std::string(data, length) + " " + std::to_string(timeout_ms));
    *reply = "answer";
    return 7;
  }
  int ListenMessage(const std::string& topic, int) override {
    calls.push_back("listen " + topic);
    if (hears_at_once) {
      Hear(topic, "at once");
    }
    return listen_result;
  }
  int RemoveListenMessage(const std::string& topic) override {
    calls.push_back("leave " + topic);
    return 3;
  }

  void Hear(const std::string& topic, const std::string& body) {
    SignalDpMessage(shared_from_this(),
                    boost::make_shared<tarvex::DpMessage>(tarvex::DpMessage{topic, body}));
  }

  int listen_result = 0;
  bool hears_at_once = false;
  std::vector<std::string> calls;
};

/// What the plug-in hears of its bus client.
class Listener : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  void OnMessage(boost::shared_ptr<tarvex::DpClient> client,
                 boost::shared_ptr<tarvex::DpMessage> message) {
    from = client.get();
    heard.push_back(message->method + " " + message->body);
  }

  const tarvex::DpClient* from = nullptr;
  std::vector<std::string> heard;
};

}  // namespace mqttadapter_host
