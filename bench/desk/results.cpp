#include "results.h"

#include <atomic>
#include <charconv>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "broker.h"
#include "bus.h"
#include "figures.h"
#include "process_cost.h"

namespace {

using std::chrono::milliseconds;

constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";
constexpr char kStoreQueue[] = "BUS_GET_IVS_INFO";
constexpr char kMarked[] = R"({"body":{"changed":1},"state_code":200})";
constexpr char kCounted[] = R"({"body":{"offline_count":0,"oldest_age_s":0},"state_code":200})";

// How long nothing may happen until it is over.
constexpr std::int64_t kStall_ns = 6'000'000'000;
constexpr std::int64_t kLate_ns = 1'000'000'000;
constexpr std::int64_t kKnock_ns = 200'000'000;
constexpr std::size_t kMemorySamples = 20;
constexpr std::size_t kPathField = 128;

/// The number that follows a member's name in JSON text; 0 without one.
std::uint32_t NumberAfter(std::string_view text, std::string_view name) {
  std::size_t at = text.find(name);
  if (at == std::string_view::npos) {
    return 0;
  }
  at = text.find_first_of("0123456789", at + name.size());
  if (at == std::string_view::npos) {
    return 0;
  }
  std::uint32_t number = 0;
  std::from_chars(text.data() + at, text.data() + text.size(), number);
  return number;
}

/// What became of one result. Written by the threads of both libraries.
struct Fate {
  std::atomic<std::int64_t> sent_ns{0};
  std::atomic<std::int64_t> arrived_ns{0};
  std::atomic<std::uint32_t> arrivals{0};
  std::atomic<std::uint32_t> confirmations{0};
};

/// One result as the device announces it, 552 bytes.
std::string ResultRecord(const ResultsOptions& options, std::uint32_t plate_id) {
  std::string record(552, '\0');
  const auto put = [&record](std::size_t offset, const auto& value) {
    std::memcpy(record.data() + offset, &value, sizeof(value));
  };
  const std::string plate = "BN" + std::to_string(10000 + plate_id % 90000);
  record.replace(0, plate.size(), plate);
  record.replace(16, 8, "0xF7C41E");
  record[23] = '\0';
  const std::int32_t codes[] = {3, 1, 96, 197, 1, 790, 660, 1010, 710, 17};
  put(24, codes);
  put(64, std::uint32_t{1795278937});
  put(68, plate_id % 1000000);
  put(72, std::uint32_t{1});
  record[76] = 75;
  record[77] = 4;
  put(80, plate_id);
  const std::uint8_t calendar[] = {37, 35, 16, 21, 11};
  put(84, calendar);
  put(92, std::uint32_t{2026});
  record[101] = 22;
  record[102] = 4;
  const std::int32_t car[] = {550, 350, 1250, 780};
  put(104, car);
  record[120] = 19;
  record[121] = 12;
  put(122, std::uint16_t{2015});
  record.replace(296, options.full_picture.size(), options.full_picture);
  record.replace(424, options.clip_picture.size(), options.clip_picture);
  return record;
}

class Run {
 public:
  explicit Run(const ResultsOptions& options)
      : options_(options),
        total_(1 + options.warm_up + options.count),
        fates_(std::make_unique<Fate[]>(total_)),
        bus_(options.bus_port),
        broker_(options.broker_port, options.topic, 0,
                [this](std::string_view, std::string_view payload) { OnArrived(payload); }) {
    broker_.DriveInBackground();
    bus_.Listen(kStoreQueue, [this](const std::string& request, const char* reply_to) {
      OnStoreRequest(request, reply_to);
    });
  }

  Json::Value Measure() {
    Knock();
    SendAsConfirmed(1, options_.warm_up);
    const std::size_t first = 1 + options_.warm_up;
    const ProcessCost before = CostOf(options_.pid);
    const std::int64_t begin_ns = NowNs();
    if (options_.burst) {
      SendAtOnce(first);
    } else if (options_.rate > 0) {
      SendAtRate(first);
    } else {
      SendAsConfirmed(first, options_.count);
    }
    const ProcessCost after = CostOf(options_.pid);
    AwaitArrivals();
    return Figures(first, before, after, latest_event_ns_ - begin_ns);
  }

 private:
  /// A program that has just been started listens a little later.
  void Knock() {
    const std::int64_t deadline = NowNs() + 10 * kStall_ns;
    while (confirmed_ == 0) {
      if (NowNs() > deadline) {
        throw std::runtime_error("no result comes through");
      }
      Send(0);
      const std::int64_t again_at = NowNs() + kKnock_ns;
      while (confirmed_ == 0 && NowNs() < again_at) {
        std::this_thread::sleep_for(milliseconds(2));
      }
    }
    AwaitQuiet();
  }

  /// Knocks that came twice may still be under way.
  void AwaitQuiet() {
    while (NowNs() - latest_event_ns_ < kKnock_ns) {
      std::this_thread::sleep_for(milliseconds(10));
    }
  }

  void Send(std::size_t index) {
    const std::string record =
        ResultRecord(options_, options_.first_id + static_cast<std::uint32_t>(index));
    fates_[index].sent_ns = NowNs();
    bus_.Publish(kResultTopic, record);
  }

  void BeginCounting() {
    AwaitArrivals();
    arrived_ = 0;
    confirmed_ = 0;
  }

  void SendAsConfirmed(std::size_t first, std::size_t count) {
    BeginCounting();
    end_ = first + count;
    next_ = first + std::min(options_.window, count);
    for (std::size_t index = first; index < first + std::min(options_.window, count); ++index) {
      Send(index);
    }
    AwaitConfirmations(count);
    end_ = 0;
  }

  void SendAtRate(std::size_t first) {
    BeginCounting();
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < options_.count; ++i) {
      std::this_thread::sleep_until(begin + std::chrono::nanoseconds(static_cast<std::int64_t>(
                                                static_cast<double>(i) * 1e9 / options_.rate)));
      Send(first + i);
    }
    AwaitConfirmations(options_.count);
  }

  void SendAtOnce(std::size_t first) {
    BeginCounting();
    for (std::size_t i = 0; i < options_.count; ++i) {
      Send(first + i);
    }
    // Those that are shed are never confirmed: it is over when nothing comes any more.
    AwaitConfirmations(options_.count);
  }

  void AwaitConfirmations(std::size_t count) {
    const std::size_t sample_every = std::max<std::size_t>(1, count / kMemorySamples);
    latest_event_ns_ = NowNs();
    while (confirmed_ < count && NowNs() - latest_event_ns_ < kStall_ns) {
      if (count == options_.count && confirmed_ >= rss_kb_.size() * sample_every) {
        rss_kb_.append(Json::Int64{CostOf(options_.pid).rss_kb});
      }
      std::this_thread::sleep_for(milliseconds(1));
    }
  }

  /// The broker's subscriber may be a little behind the store.
  void AwaitArrivals() {
    const std::int64_t deadline = NowNs() + kLate_ns;
    while (arrived_ < confirmed_ && NowNs() < deadline) {
      std::this_thread::sleep_for(milliseconds(1));
    }
  }

  Fate* FateOf(std::uint32_t plate_id) {
    const std::size_t index = plate_id - options_.first_id;
    return index < total_ ? &fates_[index] : nullptr;
  }

  void OnArrived(std::string_view payload) {
    Fate* const fate = FateOf(NumberAfter(payload, "\"plateid\""));
    if (fate != nullptr && fate->arrivals++ == 0) {
      fate->arrived_ns = NowNs();
      ++arrived_;
    }
  }

  void OnStoreRequest(const std::string& request, const char* reply_to) {
    const std::uint32_t plate_id = NumberAfter(request, "\"plate_id\"");
    if (options_.answer_confirmations && reply_to != nullptr) {
      bus_.Publish(reply_to, plate_id != 0 ? kMarked : kCounted);
    }
    Fate* const fate = FateOf(plate_id);
    if (fate == nullptr) {
      return;
    }
    latest_event_ns_ = NowNs();
    if (fate->confirmations++ == 0) {
      ++confirmed_;
      const std::size_t next = next_++;
      if (next < end_) {
        Send(next);
      }
    }
  }

  Json::Value Figures(std::size_t first, const ProcessCost& before, const ProcessCost& after,
                      std::int64_t time_ns) {
    std::vector<std::int64_t> latencies_ns;
    std::size_t confirmed = 0;
    std::size_t duplicates = 0;
    for (std::size_t index = first; index < first + options_.count; ++index) {
      const Fate& fate = fates_[index];
      if (fate.arrivals > 0) {
        latencies_ns.push_back(fate.arrived_ns - fate.sent_ns);
        duplicates += fate.arrivals - 1U;
      }
      confirmed += fate.confirmations > 0 ? 1U : 0U;
    }
    Json::Value json;
    json["count"] = Json::UInt64{options_.count};
    json["arrived"] = Json::UInt64{latencies_ns.size()};
    json["confirmed"] = Json::UInt64{confirmed};
    json["arrived_again"] = Json::UInt64{duplicates};
    json["seconds"] = static_cast<double>(time_ns) / 1e9;
    json["rate"] = static_cast<double>(confirmed) * 1e9 / static_cast<double>(time_ns);
    json["cpu_us"] = static_cast<double>(after.cpu_ns - before.cpu_ns) / 1e3 /
                     static_cast<double>(std::max<std::size_t>(1, confirmed));
    json["latency_us"] = TimesJson(latencies_ns);
    json["rss_kb"] = Json::Int64{after.rss_kb};
    json["private_kb"] = Json::Int64{after.private_kb};
    json["threads"] = after.threads;
    json["rss_kb_over_time"] = rss_kb_;
    return json;
  }

  const ResultsOptions options_;
  const std::size_t total_;
  std::unique_ptr<Fate[]> fates_;
  std::atomic<std::size_t> arrived_{0};
  std::atomic<std::size_t> confirmed_{0};
  std::atomic<std::int64_t> latest_event_ns_{0};
  std::atomic<std::size_t> next_{0};  // to be sent for a confirmation
  std::atomic<std::size_t> end_{0};
  Json::Value rss_kb_{Json::arrayValue};
  Bus bus_;
  Broker broker_;
};

}  // namespace

Json::Value MeasureResults(const ResultsOptions& options) {
  if (std::max(options.full_picture.size(), options.clip_picture.size()) >= kPathField) {
    throw std::runtime_error("a record has no room for such a path of a picture");
  }
  return Run(options).Measure();
}
