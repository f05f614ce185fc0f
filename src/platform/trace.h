// What a program of the desk tells of each message on its way, for whoever watches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <json/value.h>

#include "platform/utf8.h"

namespace tarvex {

class SocketService;

/// The bus topic of the events.
constexpr char kTraceTopic[] = "TRACE_MESSAGES";

/// More of a text or of bytes is not told.
constexpr std::size_t kMaxTraced_bytes = std::size_t{64} << 10U;

/// The host's clock, microseconds since 1970.
std::int64_t TraceClock_us();

/// Adds a text to an event; as `<key>_base64` where it is not UTF-8. Sets "cut" where it
/// is longer than kMaxTraced_bytes.
void AddTracedText(Json::Value* event, const std::string& key, std::string_view text);

/// Adds bytes as Base64, likewise.
void AddTracedBytes(Json::Value* event, const std::string& key, std::string_view bytes);

/// The bytes that AddTracedBytes() has added; none where there is no such member.
std::string TracedBytes(const Json::Value& event, const char* key);

/// Makes events. A program that is not to tell anything has no such object.
class Trace {
 public:
  /// Takes an event as compact JSON.
  using Sink = std::function<void(std::string)>;

  /// @param by   the program.
  /// @param sn   the serial number of its camera.
  /// @param sink called on the thread of Tell().
  Trace(const std::string& by, const std::string& sn, Sink sink);

  /// @param members of the event beyond those that all have: "by", "sn", "at_us", "event".
  /// @param at_us   when it happened, by TraceClock_us().
  void Tell(const char* event, Json::Value members, std::int64_t at_us) const;
  void Tell(const char* event, Json::Value members) const;

 private:
  const std::string by_;
  const std::string sn_;
  const Sink sink_;
};

/// A sink that publishes on the process's connection to the bus, and never waits. What the bus
/// does not take, because it is away or slow, is dropped. The end of the last copy of the sink
/// waits for what was told before, half a second at the most.
/// @param service     on whose thread the sink is used; outlives it.
/// @param client_name as BusConnection's.
/// @return after an error in the log a sink that drops all, when there can be no connection.
Trace::Sink BusTraceSink(SocketService* service, const std::string& client_name);

}  // namespace tarvex
