// The interface of the camera's services.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <json/value.h>

namespace virtual_camera {

struct Device;

/// Answers the requests of one queue. Used on the camera's thread.
class Service {
 public:
  virtual ~Service() = default;

  /// Carries out a request of any bytes, and gives the bytes of the answer, which may be
  /// none. Lets no exception out.
  virtual std::string Answer(const std::string& request) = 0;
};

/// A service whose requests are JSON objects {"type", "module", "body"}. What it refuses
/// is answered with {"error": reason, "state_code": 400}.
class JsonService : public Service {
 public:
  std::string Answer(const std::string& request) final;

 protected:
  /// @param type    of the request.
  /// @param request the whole request, an object.
  /// @return the bytes of the answer. May throw RequestError, and what jsoncpp throws.
  virtual std::string Handle(const std::string& type, const Json::Value& request) = 0;
};

/// A service whose requests are bytes of a layout of their own; its answers are JSON.
class RecordService : public Service {
 public:
  std::string Answer(const std::string& request) final;

 protected:
  /// As JsonService::Handle.
  virtual std::string Handle(const std::string& request) = 0;

  /// The little-endian number at an offset; the request must be long enough.
  static int32_t Int32At(const std::string& request, size_t offset);
};

/// {"body": body, "state_code": 200} as compact text.
std::string Accepted(const Json::Value& body);

/// {"error": reason, "state_code": 400} as compact text.
std::string Refused(const std::string& reason);

/// Throws the RequestError of a type that the service does not know.
[[noreturn]] void RefuseType(const std::string& type);

/// The member of an object that must be there and be a text or a number of that range.
/// Throw RequestError otherwise.
std::string RequiredText(const Json::Value& object, const char* key);
int RequiredInt(const Json::Value& object, const char* key);
uint32_t RequiredUnsigned(const Json::Value& object, const char* key);

/// One line per service: its queue, and how to make it.
struct ServiceRow {
  const char* queue;
  std::unique_ptr<Service> (*create)(Device& device);
};

}  // namespace virtual_camera
