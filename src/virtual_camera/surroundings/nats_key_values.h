// The key-value databases on their server.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/asio_event_service.h"
#include "platform/nats_link.h"
#include "virtual_camera/surroundings/key_values.h"

namespace virtual_camera {

/// Has a thread of its own for the requests to the server, which wait for answers. Fills
/// the databases after each connection.
class NatsKeyValues : public KeyValueStore {
 public:
  /// @param event_service the camera's; must outlive this.
  explicit NatsKeyValues(tarvex::AsioEventService& event_service);
  ~NatsKeyValues() override;

  void Begin(const std::vector<KeyValue>& values,
             std::function<void(const std::string&, const std::string&)> on_adopted) override;
  void Put(const std::string& key, const std::string& value,
           std::function<void(bool)> done) override;

 private:
  struct Waiting {
    std::string key;
    std::string value;
    std::function<void(bool)> done;
  };

  void Work();
  bool SyncAll(const std::vector<KeyValue>& values);
  bool SyncOne(natsConnection* connection, const KeyValue& wanted);
  void Settle(const KeyValue& wanted, const std::string& in_database);
  void Answer(std::vector<Waiting> waiting, bool written);

  tarvex::AsioEventService& event_service_;
  std::function<void(const std::string&, const std::string&)> on_adopted_;

  std::mutex mutex_;  // guards the next four
  std::condition_variable wake_;
  std::vector<KeyValue> values_;
  std::vector<Waiting> waiting_;
  bool is_due_ = false;
  bool is_ending_ = false;

  std::shared_ptr<tarvex::NatsLink> link_;
  std::thread thread_;
};

}  // namespace virtual_camera
