// What the fuzz targets of the plug-in share: the plug-in as a host drives it, on a camera that a
// target plays, and what must hold whatever comes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include <json/value.h>
#include <boost/shared_ptr.hpp>

#include "base_adapter.h"
#include "fake_platform.h"
#include "fuzz_check.h"
#include "sigslot.h"

namespace fuzz {

/// A value for any text: what it is as JSON, or the text itself.
Json::Value AnyValue(const std::string& text);

/// A 552-byte record that begins with these bytes.
std::string RecordOf(const std::string& head);

/// Answers every request as the device's services do.
fake::BusAnswer GoodCamera(const fake::BusRequest& request);

/// One plug-in with its host. Holds, after every call:
/// - nothing is thrown;
/// - a bus request goes to a queue of the table, is of one of its kinds, and waits as long as that
///   one may;
/// - a publication has a name, tag and version that belong together, and it and a response are
///   JSON, the same when read again, as the contract with the cloud has it. That is looked at
///   when members of its kind and shape were not seen before, and at every 64th: it takes as
///   long as a hundred requests;
/// - results wait in the order that they came in, twenty at the most, and leave it as they are
///   acknowledged.
class Host : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  /// What a device lacks.
  struct Missing {
    bool bus = false;
    bool system_database = false;
    bool user_database = false;
    bool image_function = false;
  };
  using Camera = std::function<fake::BusAnswer(const fake::BusRequest& request)>;

  /// @param camera answers the plug-in's requests; may throw.
  explicit Host(Camera camera = GoodCamera) : Host(std::move(camera), Missing()) {}
  Host(Camera camera, const Missing& missing);
  ~Host() override;

  bool Request(const std::string& name, const Json::Value& payload, const std::string& version);
  void Deliver(const std::string& topic, const std::string& body);
  void Acknowledge(unsigned long long tag);
  void Subscribe(const std::string& name);
  void Unsubscribe(const std::string& name);
  void LinkUp();
  void LinkDown();
  /// The message to the plug-in itself, with any number and no data.
  void Post(unsigned int id);
  void Tick(int elapsed_ms);

  /// Acknowledges the results that wait, until none does.
  void AcknowledgeAll();

  /// Called for each picture, and on each publication after it was looked at. Both may call back,
  /// and throw.
  std::function<std::string(const std::string& source, const std::string& name)> on_picture;
  std::function<void(unsigned long long tag)> on_publication;

 private:
  void Call(const std::function<void()>& call);
  fake::BusAnswer Answer(const fake::BusRequest& request);
  void OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
              unsigned long long tag);

  Camera camera_;
  boost::shared_ptr<fake::EventService> events_;
  BaseAdapter* adapter_ = nullptr;
  Json::Value answer_;  ///< what the request at work has published under its own name
  std::string requested_;
  std::deque<std::uint32_t> waiting_;  ///< plate ids of the results that wait
  std::uint64_t status_requests_ = 0;  ///< of those that mark a result in the store
  std::uint32_t last_marked_ = 0;      ///< the plate id of the last of them
  bool has_failed_ = false;            ///< whether the camera has thrown
  bool has_bus_ = false;
  bool has_store_ = false;
};

}  // namespace fuzz
