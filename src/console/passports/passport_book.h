// The passports of the latest messages, put together from what the desk's programs
// announce, what is heard on the bus, and what the broker passes on.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "console/passports/passport.h"

namespace console {

/// A message as the broker passed it on.
struct BrokerMessage {
  std::string sn;
  std::string channel;  ///< "message" or "response"
  std::string name;
  std::string topic;
  std::string payload;
  std::string correlation;  ///< MQTT 5 correlation data
  Time_us at_us = 0;
};

/// Bounded in number and in bytes; the oldest go first. The three sources come over ways
/// of their own, so what belongs together may come in any order. One thread.
class PassportBook {
 public:
  struct Limits {
    std::size_t passports = 300;
    std::size_t bytes = std::size_t{4} << 20;
    std::size_t text_bytes = std::size_t{64} << 10;  ///< of one text or body
  };

  /// Called with each step of a passport, also one that it has no room for.
  using OnStep = std::function<void(const Passport& passport, const char* step)>;

  explicit PassportBook(OnStep on_step) : PassportBook(std::move(on_step), Limits()) {}
  PassportBook(OnStep on_step, const Limits& limits);

  /// An event that a program announced; one that is not understood is passed over.
  void OnTrace(const Json::Value& event);

  /// A message on the bus of this camera.
  void OnBusMessage(const std::string& sn, const std::string& topic, const std::string& body,
                    Time_us at_us);

  void OnBrokerMessage(const BrokerMessage& message);

  /// The console has sent a request with this correlation data.
  /// @return the id of its passport.
  std::string OnSent(const std::string& sn, const std::string& name,
                     const Passport::Request& request);

  /// The record of a stored result, as the camera has it.
  void OnStoredRecord(const std::string& sn, const std::string& record, Time_us at_us);

  /// To be called now and then.
  void OnTime(Time_us now_us);

  /// Passports that have changed since the last call.
  std::vector<const Passport*> TakeChanged();

  /// All, the oldest first.
  std::vector<const Passport*> All() const;

  const Passport* Find(const std::string& id) const;

  /// The latest that an abbreviation means: a whole id, the plate id of a result, or what a
  /// request's id ends with. Null where there is none.
  const Passport* FindShort(const std::string& text) const;

 private:
  struct Entry {
    Passport passport;
    std::size_t bytes = 0;
    std::uint64_t order = 0;
  };
  struct Expected {
    std::string id;
    std::size_t bytes;
  };
  struct Row;

  void Stored(const Json::Value& event);
  void Announced(const Json::Value& event);
  void Delivered(const Json::Value& event);
  void HandedOver(const Json::Value& event);
  void Published(const Json::Value& event);
  void NotPublished(const Json::Value& event);
  void Acknowledged(const Json::Value& event);
  void Unconfirmed(const Json::Value& event);
  void Requested(const Json::Value& event);
  void BusRequested(const Json::Value& event);
  void Responded(const Json::Value& event);

  Passport& Result(const std::string& sn, std::uint32_t plate_id, Time_us at_us);
  Passport& Event(const std::string& sn, const std::string& topic, Time_us at_us,
                  const std::function<bool(const Passport&)>& is_it);
  Passport& RequestOf(const std::string& sn, const std::string& request, Time_us at_us);
  Passport& Make(const std::string& id, const std::string& sn, const std::string& kind,
                 Time_us at_us);
  Passport* OfPublication(const Json::Value& event);
  void SetRecord(Passport* passport, const std::string& topic, const std::string& body,
                 Time_us at_us);
  void Step(Passport* passport, const char* what, const char* by, Time_us at_us,
            const std::string& note = "");
  void Touch(const Passport& passport);
  void ExpectAtBroker(const Passport& passport, const std::string& topic, std::size_t bytes);
  std::string TakeExpected(const std::string& topic, std::size_t bytes);
  void PassedOn(Passport* passport, const BrokerMessage& message);
  void Keep(const BrokerMessage& unclaimed);
  std::string Cut(std::string text, Passport* passport) const;
  void MakeRoom();
  void Forget(std::map<std::string, Entry>::iterator oldest);

  const OnStep on_step_;
  const Limits limits_;
  std::map<std::string, Entry> entries_;  // by id
  std::map<std::uint64_t, std::string> order_;
  std::uint64_t last_order_ = 0;
  std::uint64_t last_event_ = 0;
  std::size_t bytes_ = 0;
  std::set<std::string> changed_;
  std::map<std::string, std::string> requests_;           // "sn/request": id of the passport
  std::map<std::string, std::string> publications_;       // "sn/publication": the same
  std::map<std::string, std::deque<Expected>> expected_;  // by topic, at the broker
  std::deque<BrokerMessage> unclaimed_;  // came before their publication was announced
};

}  // namespace console
