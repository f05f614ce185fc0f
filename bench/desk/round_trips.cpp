#include "round_trips.h"

#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "broker.h"
#include "bus.h"
#include "figures.h"
#include "process_cost.h"

namespace {

constexpr char kEcho[] = "bench/echo";
constexpr char kEchoed[] = "bench/echoed";
constexpr std::size_t kResultBytes = 887;
constexpr std::size_t kWarmUp = 50;

template <class Work>
std::int64_t Timed(Work work) {
  const std::int64_t begin_ns = NowNs();
  work();
  return NowNs() - begin_ns;
}

/// Takes turns, of which the first do not count.
template <class Turn>
void TakeTurns(std::size_t count, Turn turn) {
  for (std::size_t i = 0; i < kWarmUp + count; ++i) {
    turn(i >= kWarmUp);
  }
}

class BusRequester {
 public:
  explicit BusRequester(const RoundTripOptions& options)
      : bus_(options.bus_port),
        queue_(options.queue),
        request_(options.request),
        id_at_(request_.find("ID")),
        next_id_(options.first_id) {}

  void Ask() {
    std::string request = request_;
    if (id_at_ != std::string::npos) {
      request.replace(id_at_, 2, std::to_string(next_id_++));
    }
    if (!bus_.Request(queue_.c_str(), request)) {
      throw std::runtime_error("no answer of " + queue_);
    }
  }

 private:
  Bus bus_;
  std::string queue_;
  std::string request_;
  std::size_t id_at_;
  std::uint32_t next_id_;
};

/// Sends back whatever it gets, on a thread of its own.
class Echo {
 public:
  explicit Echo(int port)
      : broker_(port, kEcho, 1, [this](std::string_view, std::string_view payload) {
          broker_.Publish(kEchoed, std::string(payload));
        }) {
    broker_.DriveInBackground();
  }

 private:
  Broker broker_;
};

/// The cloud: asks and waits, on one thread.
class Cloud {
 public:
  explicit Cloud(const RoundTripOptions& options, const std::string& filter)
      : broker_(options.broker_port, filter, 1, [this](std::string_view, std::string_view payload) {
          answer_.assign(payload);
          has_answer_ = true;
        }) {}

  const std::string& Ask(const std::string& topic, const std::string& payload) {
    has_answer_ = false;
    broker_.Publish(topic, payload);
    broker_.DriveUntil([this] { return has_answer_; });
    return answer_;
  }

 private:
  std::string answer_;
  bool has_answer_ = false;
  Broker broker_;
};

/// One that has just been started takes requests a little later.
void AwaitAgent(const RoundTripOptions& options) {
  bool is_online = false;
  Broker broker(options.broker_port, options.base + "/status", 1,
                [&is_online](std::string_view, std::string_view status) {
                  is_online = status.find("\"online\":true") != std::string_view::npos;
                });
  broker.DriveUntil([&is_online] { return is_online; });
}

}  // namespace

Json::Value MeasureRequests(const RoundTripOptions& options) {
  const std::string topic = options.base + "/request/" + options.name;
  const std::string payload = R"({"id":"1","version":"1.0","payload":{"type":")" + options.name +
                              '"' + (options.body.empty() ? "" : ",\"body\":" + options.body) +
                              "}}";
  AwaitAgent(options);
  Cloud cloud(options, options.base + "/response/" + options.name);
  std::optional<Cloud> echo_asker;
  std::optional<Echo> echo;
  std::optional<BusRequester> bus;
  if (!options.queue.empty()) {
    echo.emplace(options.broker_port);
    echo_asker.emplace(options, kEchoed);
    bus.emplace(options);
  }
  std::vector<std::int64_t> requests_ns;
  std::vector<std::int64_t> echoes_ns;
  std::vector<std::int64_t> bus_ns;
  std::vector<std::int64_t> floors_ns;
  std::optional<std::int64_t> cpu_before_ns;
  TakeTurns(options.count, [&](bool counts) {
    if (counts && !cpu_before_ns) {
      cpu_before_ns = CostOf(options.pid).cpu_ns;
    }
    const std::int64_t request_ns = Timed([&] {
      const std::string& response = cloud.Ask(topic, payload);
      if (response.find("\"result\":true") == std::string::npos) {
        throw std::runtime_error(options.name + " failed: " + response);
      }
    });
    if (counts) {
      requests_ns.push_back(request_ns);
    }
    if (!bus) {
      return;
    }
    const std::int64_t echo_ns = Timed([&] { echo_asker->Ask(kEcho, payload); });
    const std::int64_t asked_ns = Timed([&] { bus->Ask(); });
    if (counts) {
      echoes_ns.push_back(echo_ns);
      bus_ns.push_back(asked_ns);
      floors_ns.push_back(echo_ns + asked_ns);
    }
  });
  const std::int64_t cpu_ns = CostOf(options.pid).cpu_ns - cpu_before_ns.value_or(0);
  Json::Value json;
  json["request_us"] = TimesJson(requests_ns);
  json["cpu_us"] = static_cast<double>(cpu_ns) / 1e3 / static_cast<double>(options.count);
  json["bytes"] = Json::UInt64{payload.size()};
  if (bus) {
    json["echo_us"] = TimesJson(echoes_ns);
    json["bus_us"] = TimesJson(bus_ns);
    json["floor_us"] = TimesJson(floors_ns);
  }
  return json;
}

Json::Value MeasureDeliveryFloor(const RoundTripOptions& options) {
  const std::string topic = options.base + "/message/floor";
  const std::string payload(kResultBytes, 'x');
  // Somebody listens, as to the results.
  Broker listener(options.broker_port, topic, 0, [](std::string_view, std::string_view) {});
  listener.DriveInBackground();
  Broker publisher(options.broker_port, "", 0, [](std::string_view, std::string_view) {});
  BusRequester bus(options);
  std::vector<std::int64_t> acknowledged_ns;
  std::vector<std::int64_t> bus_ns;
  TakeTurns(options.count, [&](bool counts) {
    const std::int64_t publish_ns = Timed([&] { publisher.PublishAcknowledged(topic, payload); });
    const std::int64_t asked_ns = Timed([&] { bus.Ask(); });
    if (counts) {
      acknowledged_ns.push_back(publish_ns);
      bus_ns.push_back(asked_ns);
    }
  });
  Json::Value json;
  json["broker_us"] = TimesJson(acknowledged_ns);
  json["bus_us"] = TimesJson(bus_ns);
  json["rate"] = 1e6 / (json["broker_us"]["mean"].asDouble() + json["bus_us"]["mean"].asDouble());
  return json;
}

Json::Value MeasureBusRequests(const RoundTripOptions& options) {
  BusRequester bus(options);
  std::vector<std::int64_t> times_ns;
  TakeTurns(options.count, [&](bool counts) {
    const std::int64_t time_ns = Timed([&] { bus.Ask(); });
    if (counts) {
      times_ns.push_back(time_ns);
    }
  });
  Json::Value json;
  json["bus_us"] = TimesJson(times_ns);
  return json;
}
