#include "console/metrics.h"

#include <utility>

#include <json/value.h>
#include <prometheus/text_serializer.h>

#include "json_text.h"
#include "platform/json_member.h"

namespace console {
namespace {

const prometheus::Histogram::BucketBoundaries kSeconds = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                          0.1,   0.25,   0.5,   1,    2.5,   5};

/// "done", or the code of a request that was not carried out.
std::string OutcomeOf(const Passport& request) {
  Json::Value response;
  if (!request.response || !Json::String2Json(request.response->payload, response)) {
    return "unreadable";
  }
  const Json::Value& code = tarvex::Member(response, "code");
  return code.isString() ? code.asString() : "done";
}

}  // namespace

Metrics::Metrics(std::set<std::string> request_names)
    : request_names_(std::move(request_names)),
      results_(prometheus::BuildCounter()
                   .Name("camera_results_total")
                   .Help("Steps of recognition results on their way to the cloud.")
                   .Register(registry_)),
      requests_(prometheus::BuildCounter()
                    .Name("camera_requests_total")
                    .Help("Answered requests, by name and by what became of them.")
                    .Register(registry_)),
      online_(prometheus::BuildGauge()
                  .Name("camera_online")
                  .Help("1 where the camera's status says that it is online, otherwise 0.")
                  .Register(registry_)),
      backlog_(prometheus::BuildGauge()
                   .Name("camera_backlog_results")
                   .Help("Undelivered results in the camera's store.")
                   .Register(registry_)),
      acknowledgement_seconds_(prometheus::BuildHistogram()
                                   .Name("camera_acknowledgement_seconds")
                                   .Help("From the publication of a result to its acknowledgement.")
                                   .Register(registry_)),
      request_seconds_(prometheus::BuildHistogram()
                           .Name("camera_request_seconds")
                           .Help("From the begin of a request to its response.")
                           .Register(registry_)) {}

void Metrics::OnStep(const Passport& passport, const char* step) {
  if (passport.kind == "result") {
    results_.Add({{"sn", passport.sn}, {"step", step}}).Increment();
    if (passport.ack_us && step == std::string("acknowledged")) {
      acknowledgement_seconds_.Add({{"sn", passport.sn}}, kSeconds)
          .Observe(static_cast<double>(*passport.ack_us) / kSecond_us);
    }
  } else if (passport.kind == "request" && step == std::string("answered")) {
    OnAnswered(passport);
  }
}

void Metrics::OnAnswered(const Passport& request) {
  const std::string name = request_names_.count(request.name) != 0 ? request.name : "other";
  requests_.Add({{"sn", request.sn}, {"name", name}, {"outcome", OutcomeOf(request)}}).Increment();
  request_seconds_.Add({{"sn", request.sn}, {"name", name}}, kSeconds)
      .Observe(static_cast<double>(request.response->us) / kSecond_us);
}

void Metrics::OnOnline(const std::string& sn, bool is_online) {
  online_.Add({{"sn", sn}}).Set(is_online ? 1 : 0);
}

void Metrics::OnBacklog(const std::string& sn, std::int64_t count) {
  backlog_.Add({{"sn", sn}}).Set(static_cast<double>(count));
}

std::string Metrics::Text() const {
  return prometheus::TextSerializer().Serialize(registry_.Collect());
}

}  // namespace console
