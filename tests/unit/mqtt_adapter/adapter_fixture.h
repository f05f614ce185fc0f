// An adapter linked into the test, for the members that a host cannot call.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fake_platform.h"
#include "json_text.h"
#include "mqtt_adapter.h"

inline Json::Value Parsed(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Json::String2Json(text, value)) << text;
  return value;
}

inline std::string Compact(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

/// The first request on the bus that no one has claimed, as "queue text timeout".
inline std::string BusHeard() {
  std::deque<fake::BusRequest>& requests = fake::ThePlatform().requests;
  if (requests.empty()) {
    return "nothing";
  }
  const fake::BusRequest request = requests.front();
  requests.pop_front();
  return request.queue + " " + request.data + " timeout=" + std::to_string(request.timeout_ms);
}

/// The log as "source function priority text" lines.
inline std::vector<std::string> LogLines() {
  std::vector<std::string> lines;
  for (const auto& entry : fake::ThePlatform().logs) {
    lines.push_back(entry.source + " " + entry.function + " " + std::to_string(entry.priority) +
                    " " + entry.text);
  }
  return lines;
}

/// An adapter on a fresh fake platform, initialised when a test says so.
class AdapterFixture : public testing::Test, public sigslot::has_slots<sigslot::single_threaded> {
 protected:
  AdapterFixture() : events_(new fake::EventService), adapter_(events_, 7) {
    fake::ResetPlatform();
    adapter_.SignalPushMessage.connect(this, &AdapterFixture::OnPush);
  }
  /// Initialises with an image function that answers "url:<name>" unless told not to.
  void Start(bool with_image_func = true) {
    std::function<std::string(const std::string&, const std::string&)> image_func;
    if (with_image_func) {
      image_func = [this](const std::string& source, const std::string& name) {
        image_calls_.push_back(source + " " + name);
        return "url";
      };
    }
    adapter_.Initialize(image_func);
    fake::ThePlatform().logs.clear();
  }
  /// The next unclaimed publication as "name tag payload".
  std::string Published() {
    if (published_.empty()) {
      return "nothing";
    }
    const std::string next = published_.front();
    published_.pop_front();
    return next;
  }
  void Answers(const std::string& queue, const std::string& reply, int result = 1) {
    fake::ThePlatform().standing_answers[queue] = {result, reply};
  }

  boost::shared_ptr<fake::EventService> events_;
  qex::MQTTAdapter adapter_;
  std::vector<std::string> image_calls_;  ///< as "source name"

 private:
  void OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
              unsigned long long tag) {
    EXPECT_EQ(version, "1.0");
    published_.push_back(name + " " + std::to_string(tag) + " " + Compact(payload));
  }
  std::deque<std::string> published_;
};
