// The device's platform as a benchmark has it: everything is there and costs next to nothing.
// Logs are dropped, services answer at once with what the benchmark has set, posted messages
// wait in a list. The desk's own JSON text and Base64 stand behind it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "tarvex/dp_client.h"
#include "tarvex/event_service.h"

namespace bench {

/// Keeps what is posted at once until Deliver; what is delayed is dropped.
class EventService : public tarvex::EventService {
 public:
  void Post(tarvex::MessageHandler* handler, unsigned int id,
            boost::shared_ptr<tarvex::MessageData> data, bool time_sensitive) override;
  void PostDelayed(int delay_ms, tarvex::MessageHandler* handler, unsigned int id,
                   boost::shared_ptr<tarvex::MessageData> data) override;
  void Clear(tarvex::MessageHandler* handler, unsigned int id,
             std::list<tarvex::Message>* removed) override;
  void Deliver();

 private:
  std::vector<tarvex::Message> posted_;
};

/// The one bus client; null before the plug-in has made it.
boost::shared_ptr<tarvex::DpClient> TheBus();

/// Has a queue answer with these bytes from now on; every other time with the next ones, where
/// there are some.
void Answers(const std::string& queue, const std::string& reply,
             const std::string& next_reply = {});

/// What a client without a plug-in sends: the bytes go nowhere, the reply is the queue's.
int AskBus(const std::string& queue, const std::string& request, std::string* reply);

/// Calls of malloc, calloc and realloc since the program began.
unsigned long long Allocations();

}  // namespace bench
