// The bus client on a NATS connection.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <boost/enable_shared_from_this.hpp>

#include "platform/bus_connection.h"
#include "platform/bus_inbox.h"
#include "tarvex/dp_client.h"

namespace tarvex {

/// Service queues and topics are subjects. Topics are listened to again by themselves
/// after a lost connection.
class NatsDpClient final : public DpClient,
                           public MessageHandler,
                           public boost::enable_shared_from_this<NatsDpClient> {
 public:
  NatsDpClient(boost::shared_ptr<EventService> event_service,
               std::shared_ptr<BusConnection> connection);
  ~NatsDpClient() override;

  NatsDpClient(const NatsDpClient&) = delete;
  NatsDpClient& operator=(const NatsDpClient&) = delete;

  int SendRequest(const std::string& type, int flags, const char* data, size_t length,
                  std::string* reply, int timeout_ms) override;
  int ListenMessage(const std::string& topic, int flags) override;
  int RemoveListenMessage(const std::string& topic) override;

  /// Takes what the inbox has posted.
  void OnMessage(Message* msg) override;

 private:
  struct Listening {
    std::shared_ptr<BusTopic> topic;
    unsigned subscription = 0;
  };

  void Deliver(const BusTopic& topic, const boost::shared_ptr<DpMessage>& message);

  const std::shared_ptr<BusConnection> connection_;
  const std::shared_ptr<BusInbox> inbox_;
  std::map<std::string, Listening> listenings_;  // by topic
};

}  // namespace tarvex
