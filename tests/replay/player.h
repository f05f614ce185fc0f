// Runs a capture through a plug-in. The platform is the tests' own: its clock is turned by hand to
// the capture's times, and its services answer what they answered in the capture.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base_adapter.h"
#include "capture/capture.h"
#include "fake_platform.h"
#include "sigslot.h"

namespace replay {

/// Takes a line of the transcript; see transcript.h.
using Sink = std::function<void(const std::string& line)>;

/// One life of a plug-in. Uses the process's one fake platform and its standard output, so there
/// is one of them in a process.
class Player : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  Player(const capture::Capture& capture, Sink sink);
  ~Player() override;

  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// @param library that WhatIsWrong() finds nothing wrong with; stays loaded.
  void Play(const std::string& library);

 private:
  /// A request to a service and what was answered, in the capture.
  struct Answer {
    std::int64_t us;
    std::string queue;
    std::string body;
    fake::BusAnswer answer;
    bool is_used = false;
  };

  void Start(const std::string& library);
  void LinkUp();
  void LinkDown();
  void Apply(const Json::Value& event);
  void Deliver(const Json::Value& event);
  void Request(const Json::Value& event);
  void Confirm(const Json::Value& event);
  void SetDatabase(const Json::Value& event);

  /// Has what is due until then happen, each at its time.
  void RunClockTo(std::int64_t us);
  void SetClock(std::int64_t us);

  /// Calls the plug-in. What it throws is told.
  void Call(const std::function<void()>& function);

  // What the plug-in does while it is called:
  void OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
              unsigned long long tag);
  fake::BusAnswer OnBusRequest(const fake::BusRequest& request);
  void OnLog(const fake::LogEntry& entry);

  Answer* Find(const std::string& queue, const std::string* body);

  void Title(const std::string& text);
  void Say(const std::string& text);
  void SayAll(const std::vector<std::string>& lines);
  void SayWhatWasPrinted();
  void SayWhatIsListenedTo();

  const capture::Capture& capture_;
  const Sink sink_;
  std::vector<Answer> answers_;  // by time
  std::int64_t now_us_ = 0;      // since the capture's start
  boost::shared_ptr<fake::EventService> events_;
  BaseAdapter* adapter_ = nullptr;
  decltype(&destory_adapter) destroy_ = nullptr;
  std::set<std::string> publishes_;
  std::set<std::string> listened_;                    // as it was last told
  std::map<unsigned long long, int> unacknowledged_;  // publications, by tag
  int printed_ = -1;                                  // the file that standard output goes to
  off_t printed_told_bytes_ = 0;
};

}  // namespace replay
