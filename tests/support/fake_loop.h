// An event thread that is turned by hand.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <utility>

class FakeLoop {
 public:
  std::function<void(std::function<void()>)> Post() {
    return [this](std::function<void()> task) { tasks_.push_back(std::move(task)); };
  }

  std::function<void(std::chrono::milliseconds, std::function<void()>)> PostAfter() {
    return [this](std::chrono::milliseconds delay, std::function<void()> task) {
      delayed_.emplace(now_ + delay, std::move(task));
    };
  }

  bool RunOne() {
    if (tasks_.empty()) {
      return false;
    }
    const std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
    return true;
  }

  void Run() {
    while (RunOne()) {
    }
  }

  /// Lets time pass, and everything happen that is due by then.
  void Advance(std::chrono::milliseconds time) {
    const std::chrono::milliseconds end = now_ + time;
    Run();
    while (!delayed_.empty() && delayed_.begin()->first <= end) {
      now_ = delayed_.begin()->first;
      const std::function<void()> task = std::move(delayed_.begin()->second);
      delayed_.erase(delayed_.begin());
      task();
      Run();
    }
    now_ = end;
  }

  std::chrono::milliseconds now() const { return now_; }

 private:
  std::chrono::milliseconds now_{0};
  std::deque<std::function<void()>> tasks_;
  std::multimap<std::chrono::milliseconds, std::function<void()>> delayed_;
};
