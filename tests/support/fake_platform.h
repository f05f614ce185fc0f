// The device's platform as a test has it: nothing runs by itself. Bus requests are
// kept and answered as the test has said, messages wait until the test turns the
// clock, logs and databases are plain containers.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "tarvex/dp_client.h"
#include "tarvex/event_service.h"
#include "tarvex/time_util.h"

namespace fake {

/// Where it is above 0, nothing of this thread is to fail for want of memory.
inline thread_local int undisturbed = 0;

/// A scope of the platform's or the host's own, in which memory does not run out.
class Undisturbed {
 public:
  Undisturbed() { ++undisturbed; }
  ~Undisturbed() { --undisturbed; }
  Undisturbed(const Undisturbed&) = delete;
  Undisturbed& operator=(const Undisturbed&) = delete;
};

/// One request that the plug-in sent over the bus.
struct BusRequest {
  std::string queue;
  int flags;
  std::string data;
  int timeout_ms;
  bool into_empty_reply;  ///< whether the reply's string held nothing yet
};

/// What a service answers: the result of the send, and the reply's bytes.
struct BusAnswer {
  int result;
  std::string reply;
};

struct LogEntry {
  int priority;
  std::string source;
  std::string function;
  std::string text;
};

/// Delivers when the test says so.
class EventService : public tarvex::EventService {
 public:
  void Post(tarvex::MessageHandler* handler, unsigned int id,
            boost::shared_ptr<tarvex::MessageData> data, bool time_sensitive) override;
  void PostDelayed(int delay_ms, tarvex::MessageHandler* handler, unsigned int id,
                   boost::shared_ptr<tarvex::MessageData> data) override;
  void Clear(tarvex::MessageHandler* handler, unsigned int id,
             std::list<tarvex::Message>* removed) override;

  /// Moves the clock on and delivers everything that is due, in due order.
  void Tick(int elapsed_ms);

  struct Pending {
    std::int64_t due_ms;
    bool time_sensitive;
    tarvex::Message message;
  };
  /// In order of delivery among equal times.
  std::list<Pending> pending;
  std::vector<unsigned int> cleared_ids;
  unsigned int throw_on_clear = 0;  ///< id whose clearing throws

 private:
  std::int64_t now_ms_ = 0;
};

/// Everything the plug-in can see of the device. One instance; reset for each test.
struct Platform {
  // What the test sets.
  bool has_bus = true;
  bool has_chw_info = true;
  std::set<std::string> missing_databases;
  std::map<std::string, std::map<std::string, std::string>> databases;
  std::map<std::string, std::deque<BusAnswer>> scripted_answers;  ///< per queue, used up first
  std::map<std::string, BusAnswer> standing_answers;              ///< per queue
  /// Where it is set it answers every request, whatever the two above say; may throw.
  std::function<BusAnswer(const BusRequest& request)> camera;
  /// Where it is set it hears of each entry of the log.
  std::function<void(const LogEntry& entry)> on_log;
  int listen_result = 0;
  std::string sn = "SN0001";
  unsigned long long now_s = 1700000000;
  tarvex::_TimeS local_time = {2024, 1, 31, 23, 59, 59};
  std::string throw_on_request;    ///< queue whose requests throw
  std::string throw_on_remove;     ///< topic that cannot be left without throwing
  bool serialising_fails = false;  ///< whether no JSON value becomes text any more

  // What the plug-in did.
  std::vector<std::string> created;  ///< clients and databases, as lines
  std::deque<BusRequest> requests;
  std::set<std::string> listened_topics;
  std::vector<std::string> removed_topics;
  std::vector<LogEntry> logs;
  std::vector<int> decode_flags;    ///< of each Base64 decoding
  tarvex::DpClient* bus = nullptr;  ///< the living bus client

  /// Has a bus message arrive.
  void Deliver(const std::string& topic, const std::string& body);
};

Platform& ThePlatform();
void ResetPlatform();

}  // namespace fake
