// The bus client on a NATS connection.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <boost/enable_shared_from_this.hpp>

#include "platform/bus_inbox.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "tarvex/dp_client.h"

namespace tarvex {

/// Service queues and topics are subjects. Topics are listened to again by themselves
/// after a lost connection.
class NatsDpClient final : public DpClient,
                           public MessageHandler,
                           public boost::enable_shared_from_this<NatsDpClient> {
 public:
  using Connect = std::function<std::shared_ptr<NatsLink>()>;

  /// @param connect makes a connection to the bus.
  /// @param link    the first one that it made.
  NatsDpClient(boost::shared_ptr<EventService> event_service, Connect connect,
               std::shared_ptr<NatsLink> link);
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
    NatsSubscription subscription;
  };

  NatsSubscription Subscribe(const std::shared_ptr<const BusTopic>& topic) const;
  void ConnectAfresh();
  void Deliver(const BusTopic& topic, const boost::shared_ptr<DpMessage>& message);

  const Connect connect_;
  std::shared_ptr<NatsLink> link_;
  const std::shared_ptr<BusInbox> inbox_;
  std::map<std::string, Listening> listenings_;  // by topic
};

}  // namespace tarvex
