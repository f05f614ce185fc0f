// The contract between the host cloud agent and an adapter plug-in.
//
// A plug-in is a shared library that exports `create_adapter` and
// `destory_adapter`; the host drives everything else through BaseAdapter. The
// two sides are built separately, so the order of members and virtual functions
// is part of the contract.
#pragma once

#include <functional>
#include <set>
#include <string>

#include <json/value.h>
#include <boost/shared_ptr.hpp>

#include "sigslot.h"
#include "tarvex/event_service.h"

/// One adapter. The host calls every operation on its event-service thread, and
/// no operation lets an exception out.
///
/// Order of calls: create_adapter, Initialize, GetMessageNames, then
/// SubscribeMessage per name and RequestMessage per request, the notifications as
/// the link changes, destory_adapter last.
///
/// No slot, image function or function of the platform destroys the adapter that is
/// calling it: the call goes on with the adapter's members. It may post a message to the
/// event service that does.
///
/// What a host may rely on: no thread is started; arguments, in either direction, live for the call
/// only. A payload and a response own their memory, keys included: a copy outlives the adapter, and
/// the library when that is unloaded.
class BaseAdapter {
 public:
  /// @param event_service the host's event service, shared with the adapter.
  /// @param id            a number of the host's choosing.
  BaseAdapter(boost::shared_ptr<tarvex::EventService> event_service, int id)
      : m_id_(id), m_event_service_(event_service) {}
  virtual ~BaseAdapter() {}

  BaseAdapter(const BaseAdapter&) = delete;
  BaseAdapter& operator=(const BaseAdapter&) = delete;

  /// Connects the adapter to the device. Called once.
  /// @param func the host's image function: (image source, file name) to the
  ///             text under which the cloud finds the picture. May be empty.
  /// @return 0, also without a bus client: then SubscribeMessage is false for every name.
  ///         Non-zero when the adapter could not be set up completely. It can be called all
  ///         the same, and knows neither settings nor stored results.
  virtual int Initialize(
      std::function<std::string(const std::string&, const std::string&)> func) = 0;

  /// Adds the request names that the adapter serves and the message names that it
  /// publishes. What the sets hold already is kept.
  virtual void GetMessageNames(std::set<std::string>& requests,
                               std::set<std::string>& publishes) = 0;

  /// Starts the events behind a published message name. For "offline_record" it asks the
  /// device and publishes the answer: up to 5 seconds.
  /// @return false: no such name, or the device refused.
  virtual bool SubscribeMessage(const std::string& name) = 0;

  /// Stops the events behind a published message name.
  virtual void UnsubscribeMessage(const std::string& name) = 0;

  /// Carries out one cloud request. Blocks until the device has answered, for up to 10
  /// seconds by the request's name (docs/porting.md).
  /// @param payload  {"type": name, "body": ...}, of any shape.
  /// @param version  version of the message format, such as "1.0".
  /// @param response filled by those requests that answer directly; the host's own.
  /// @return true when the request was carried out.
  virtual bool RequestMessage(const std::string& name, const Json::Value& payload,
                              const std::string& version, Json::Value& response) = 0;

  /// The link to the broker was lost.
  virtual void OnMQTTDisconnected() = 0;

  /// The link to the broker stands.
  virtual void OnMQTTConnected() = 0;

  /// The broker has acknowledged a message that the adapter published. Tells the device's
  /// store of a recognition result: up to 5 seconds, for a re-delivered one up to 10.
  /// @param tag the tag that came with SignalPushMessage.
  virtual void OnMessagePublished(unsigned long long tag) = 0;

  virtual void OnPushDone(const std::string&) {}
  virtual void OnPushError(const std::string&) {}

  /// Emitted to have a message published: (name, payload, version, tag). The host
  /// connects to it before Initialize, and copies what it needs after the call.
  sigslot::signal4<const std::string&, const Json::Value&, const std::string&, unsigned long long,
                   sigslot::single_threaded>
      SignalPushMessage;

 protected:
  int m_id_;
  boost::shared_ptr<tarvex::EventService> m_event_service_;
};

extern "C" {

/// Creates an adapter. The caller owns it and gives it back to destory_adapter.
/// @return null only when there is no memory.
__attribute__((visibility("default"))) BaseAdapter* create_adapter(
    boost::shared_ptr<tarvex::EventService> event_service, int id);

/// Destroys an adapter; null is ignored. The misspelt name is the exported one.
__attribute__((visibility("default"))) void destory_adapter(BaseAdapter* adapter);

}  // extern "C"
