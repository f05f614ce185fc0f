// A camera for tests: a real device in a directory of its own; the tests set the time, and
// bus, databases and serial lines are fakes that record what they are given.
#pragma once

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>

#include "json_text.h"
#include "support/temp_directory.h"
#include "virtual_camera/device/device.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

class FakeTimeline : public Timeline {
 public:
  int64_t SteadyMs() const override { return now_ms_; }
  int64_t SystemUs() const override { return system_us_; }
  void After(int64_t delay_ms, std::function<void()> task) override {
    tasks_.emplace(now_ms_ + std::max<int64_t>(delay_ms, 0), std::move(task));
  }

  /// Moves the time on, and runs the tasks that are due, in order.
  void Advance(int64_t ms) {
    const int64_t until = now_ms_ + ms;
    while (!tasks_.empty() && tasks_.begin()->first <= until) {
      const auto task = tasks_.extract(tasks_.begin());
      Turn(task.key() - now_ms_);
      task.mapped()();
    }
    Turn(until - now_ms_);
  }

  /// 14 November 2023, 22:13:20 UTC, and what Advance adds, until it is set.
  void SetSystem(int64_t seconds) { system_us_ = seconds * 1000000; }

 private:
  void Turn(int64_t ms) {
    now_ms_ += ms;
    system_us_ += ms * 1000;
  }

  int64_t now_ms_ = 5000;
  int64_t system_us_ = int64_t{1700000000} * 1000000;
  std::multimap<int64_t, std::function<void()>> tasks_;
};

class FakeBus : public Announcer {
 public:
  bool Announce(const std::string& topic, const std::string& body) override {
    if (is_away) {
      return false;
    }
    heard.emplace_back(topic, body);
    return true;
  }

  bool is_away = false;
  std::vector<std::pair<std::string, std::string>> heard;
};

/// A key-value server that is reachable unless `is_away` is set.
class FakeKeyValues : public KeyValueStore {
 public:
  void Begin(const std::vector<KeyValue>& values,
             std::function<void(const std::string&, const std::string&)> on_adopted) override {
    begun = values;
    adopt = std::move(on_adopted);
  }
  void Put(const std::string& key, const std::string& value,
           std::function<void(bool)> done) override {
    if (!is_away) {
      written[key] = value;
    }
    done(!is_away);
  }

  bool is_away = false;
  std::vector<KeyValue> begun;
  std::function<void(const std::string&, const std::string&)> adopt;
  std::map<std::string, std::string> written;
};

class FakeLines : public SerialLines {
 public:
  void Begin(const std::string&, std::function<void(int, const std::string&)> on_input) override {
    type = std::move(on_input);
  }
  size_t Write(int channel, const std::string& bytes) override {
    const std::string taken = bytes.substr(0, room);
    wire[channel] += taken;
    return taken.size();
  }
  std::string Path(int channel) const override { return "line " + std::to_string(channel); }

  size_t room = std::string::npos;
  std::map<int, std::string> wire;
  std::function<void(int channel, const std::string& bytes)> type;
};

/// A directory that is removed after the test.
class TestDirectory {
 public:
  std::string path() const { return directory_.path().string(); }

 private:
  TempDirectory directory_;
};

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

/// Numbers as a request carries them.
inline std::string Words(const std::vector<int32_t>& words) {
  std::string bytes(words.size() * sizeof(int32_t), '\0');
  std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

inline uint32_t WordAt(const std::string& bytes, size_t offset) {
  uint32_t word = 0;
  std::memcpy(&word, bytes.data() + offset, sizeof(word));
  return word;
}

class DeskCamera : public testing::Test {
 protected:
  DeskCamera() {
    options.data = directory.path();
    options.pictures.width = 64;
    options.serial_number = "CAM1";
    SwitchOn();
  }

  /// Makes a new device on the same data, as after the end of the process.
  void Restart() {
    device.reset();
    SwitchOn();
  }

  /// Sends a request to a service, and gives the answer's bytes.
  std::string Ask(const std::string& queue, const std::string& request) {
    const auto service = services.find(queue);
    return service == services.end() ? "no such service" : service->second->Answer(request);
  }

  /// The body of an answer that must be a success; else the whole answer.
  Json::Value Body(const std::string& queue, const std::string& request) {
    const Json::Value answer = Parsed(Ask(queue, request));
    return answer["state_code"] == 200 ? answer["body"] : answer;
  }

  /// What was announced since the last call, one line each; records as "plate NAME id N".
  std::vector<std::string> Heard() {
    std::vector<std::string> told;
    for (const auto& [topic, body] : std::exchange(bus.heard, {})) {
      std::string line = topic;
      if (topic == "BUS_SRV_IVS_RESULT") {
        line = "plate ";
        line += body.substr(0, body.find('\0'));
        line += " id " + std::to_string(WordAt(body, 80));
      } else {
        line += " ";
        line += body;
      }
      told.push_back(line);
    }
    return told;
  }

  IvsRecord CarPasses(const std::string& plate) {
    return device->recognition.CarPasses(Trigger::kVideo, plate);
  }

  TestDirectory directory;
  FakeTimeline timeline;
  FakeBus bus;
  FakeKeyValues key_values;
  FakeLines lines;
  DeviceOptions options;
  const tarvex::Trace* trace = nullptr;
  std::unique_ptr<Device> device;
  std::map<std::string, std::unique_ptr<Service>> services;

 private:
  void SwitchOn() {
    services.clear();
    device =
        std::make_unique<Device>(options, Surroundings{timeline, bus, key_values, lines, trace});
    for (const ServiceRow& row : ServiceTable()) {
      services[row.queue] = row.create(*device);
    }
  }
};

}  // namespace virtual_camera
