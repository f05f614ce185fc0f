// An adapter that does nothing.
#pragma once

#include "base_adapter.h"

class IdleAdapter : public BaseAdapter {
 public:
  using BaseAdapter::BaseAdapter;
  int Initialize(std::function<std::string(const std::string&, const std::string&)>) override {
    return m_id_;
  }
  void GetMessageNames(std::set<std::string>&, std::set<std::string>&) override {}
  bool SubscribeMessage(const std::string&) override { return true; }
  void UnsubscribeMessage(const std::string&) override {}
  bool RequestMessage(const std::string&, const Json::Value&, const std::string&,
                      Json::Value&) override {
    return true;
  }
  void OnMQTTDisconnected() override {}
  void OnMQTTConnected() override {}
  void OnMessagePublished(unsigned long long) override {}
};
