// What a plug-in may rely on in the platform of the host that has loaded it.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "tarvex/dp_client.h"
#include "tarvex/event_service.h"

namespace hostcheck {

struct PlatformVerdict {
  std::string check;   ///< a name of checks.h
  std::string broken;  ///< what was seen; empty where nothing was wrong
  bool is_exercised = true;
};

struct RequestOutcome {
  int result = 0;  ///< of SendRequest
  long ms = 0;     ///< that it took
  bool reply_untouched = false;
};

/// Sends a request that nobody answers, and waits for it.
RequestOutcome AskInVain(tarvex::DpClient* bus, int timeout_ms);

/// Looks at the event service, the bus client, the databases and the pure functions. Begin() is
/// called on the event service's thread; there the verdicts are handed over, some hundred
/// milliseconds later.
class PlatformCheck : public tarvex::MessageHandler {
 public:
  using Verdicts = std::vector<PlatformVerdict>;

  PlatformCheck(boost::shared_ptr<tarvex::EventService> events,
                boost::shared_ptr<tarvex::DpClient> bus,
                std::function<void(const Verdicts&)> on_end);
  ~PlatformCheck() override;

  void Begin();
  void OnMessage(tarvex::Message* message) override;

 private:
  class Data;

  boost::shared_ptr<Data> NewData();
  void PostInOrder();
  void PostDelayed();
  void PostAndClear();
  void End();
  void Judge(const char* check, const std::string& broken, bool is_exercised = true);
  void JudgeOrder(const char* check, const std::vector<unsigned>& wanted);
  void JudgeBus();
  void JudgeDatabases();
  void JudgeTexts();

  const boost::shared_ptr<tarvex::EventService> events_;
  const boost::shared_ptr<tarvex::DpClient> bus_;
  const std::function<void(const Verdicts&)> on_end_;
  const std::thread::id thread_ = std::this_thread::get_id();
  Verdicts verdicts_;
  std::vector<unsigned> delivered_;  // ids, in order
  std::shared_ptr<int> alive_;       // its users are data that was not let go of
  std::string wrong_thread_;
  std::string kept_data_;
  std::string wrong_clear_;
  std::string wrong_removed_;
};

}  // namespace hostcheck
