#include "virtual_camera/control.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "json_text.h"
#include "platform/log.h"
#include "tarvex/base64.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/service.h"

namespace virtual_camera {

namespace {

// Records of 4096 bytes each stay below the megabyte that a bus message may have.
constexpr int kMaxListed = 200;

std::string Ok(Json::Value answer = Json::Value(Json::objectValue)) {
  answer["ok"] = true;
  std::string text;
  Json::Json2String(answer, text);
  return text;
}

std::string NotOk(const std::string& reason) {
  Json::Value answer;
  answer["ok"] = false;
  answer["error"] = reason;
  std::string text;
  Json::Json2String(answer, text);
  return text;
}

std::optional<std::string> OptionalText(const Json::Value& command, const char* key) {
  if (!command.isMember(key)) {
    return std::nullopt;
  }
  return RequiredText(command, key);
}

int OptionalInt(const Json::Value& command, const char* key, int otherwise) {
  return command.isMember(key) ? RequiredInt(command, key) : otherwise;
}

// Says whether a change of the identity has reached the key-value database.
std::function<void(bool)> AnswerTo(const Control::Reply& reply) {
  return [reply](bool in_database) {
    Json::Value answer(Json::objectValue);
    if (!in_database) {
      answer["warning"] = "the key-value database is away; it will be filled in later";
    }
    reply(Ok(answer));
  };
}

}  // namespace

struct Control::Row {
  const char* name;
  void (Control::*carry_out)(const Json::Value& command, const Reply& reply);
};

const Control::Row* Control::Find(const std::string& name) {
  static const Row rows[] = {
      {"car", &Control::Car},
      {"lane", &Control::Lane},
      {"gpio-in", &Control::GpioIn},
      {"serial", &Control::Serial},
      {"rename", &Control::Rename},
      {"readdress", &Control::Readdress},
      {"service", &Control::SetService},
      {"state", &Control::State},
      {"scene", &Control::Scene},
      {"white-list", &Control::WhiteList},
      {"record", &Control::Record},
  };
  for (const Row& row : rows) {
    if (name == row.name) {
      return &row;
    }
  }
  return nullptr;
}

Control::Control(Device& device, ServiceModes& modes, std::function<Json::Value()> connection_state)
    : device_(device), modes_(modes), connection_state_(std::move(connection_state)) {}

void Control::Handle(const std::string& text, const Reply& reply) {
  try {
    Json::Value command;
    if (!Json::String2Json(text, command)) {
      throw RequestError("the command is not JSON");
    }
    const std::string name = RequiredText(command, "command");
    const Row* row = Find(name);
    if (row == nullptr) {
      throw RequestError("there is no command \"" + name + "\"");
    }
    (this->*row->carry_out)(command, reply);
  } catch (const std::exception& error) {
    SYS_LOG(kLogWarning, "command refused: %s", error.what());
    reply(NotOk(error.what()));
  }
}

void Control::RequireUp() const {
  if (!device_.power.IsUp()) {
    throw RequestError("the camera is rebooting");
  }
}

void Control::Car(const Json::Value& command, const Reply& reply) {
  RequireUp();
  const IvsRecord record =
      device_.recognition.CarPasses(Trigger::kVideo, OptionalText(command, "plate"));
  Json::Value answer;
  answer["plate"] = GetText(record.license);
  answer["plate_id"] = record.plate_id;
  answer["picture"] = GetText(record.full_path);
  reply(Ok(answer));
}

void Control::Lane(const Json::Value& command, const Reply& reply) {
  RequireUp();
  const std::string who = RequiredText(command, "who");
  if (who != "person" && who != "vehicle") {
    throw RequestError("a person or a vehicle stays, not \"" + who + "\"");
  }
  Json::Value answer;
  answer["message"] = device_.lane_control.Stay(
      who == "person" ? LaneControl::Kind::kPerson : LaneControl::Kind::kVehicle,
      OptionalText(command, "plate"));
  reply(Ok(answer));
}

void Control::GpioIn(const Json::Value& command, const Reply& reply) {
  RequireUp();
  device_.gpio.SetInput(RequiredInt(command, "input"), RequiredInt(command, "level"));
  reply(Ok());
}

void Control::Serial(const Json::Value& command, const Reply& reply) {
  RequireUp();
  device_.rs485.Input(RequiredInt(command, "channel"), RequiredText(command, "text"));
  reply(Ok());
}

void Control::Rename(const Json::Value& command, const Reply& reply) {
  device_.identity.Rename(RequiredText(command, "name"), AnswerTo(reply));
}

void Control::Readdress(const Json::Value& command, const Reply& reply) {
  device_.identity.Readdress(RequiredText(command, "ip"), AnswerTo(reply));
}

void Control::SetService(const Json::Value& command, const Reply& reply) {
  const std::string mode = RequiredText(command, "mode");
  const int delay_ms = mode == "slow" ? RequiredInt(command, "delay_ms") : 0;
  modes_.Set(RequiredText(command, "queue"), mode, delay_ms);
  reply(Ok());
}

void Control::State(const Json::Value&, const Reply& reply) {
  Json::Value answer;
  answer["state"] = device_.State();
  answer["state"]["services"] = modes_.State();
  answer["state"]["connections"] = connection_state_();
  reply(Ok(answer));
}

void Control::Scene(const Json::Value&, const Reply& reply) {
  RequireUp();
  Json::Value answer;
  answer["jpeg"] = tarvex::Base64::Encode(device_.recognition.SceneNow());
  reply(Ok(answer));
}

void Control::WhiteList(const Json::Value& command, const Reply& reply) {
  const int from = OptionalInt(command, "from", 0);
  const int count = OptionalInt(command, "count", kMaxListed);
  if (from < 0 || count < 0) {
    throw RequestError("\"from\" and \"count\" are 0 or more");
  }
  Json::Value answer;
  answer["total"] = static_cast<Json::Int64>(device_.white_list.Count());
  answer["white_list"] = device_.white_list.Records(from, std::min(count, kMaxListed));
  reply(Ok(answer));
}

void Control::Record(const Json::Value& command, const Reply& reply) {
  const std::optional<std::string> record =
      device_.results.Find(RequiredUnsigned(command, "plate_id"));
  if (!record) {
    throw RequestError("there is no result of that plate id");
  }
  Json::Value answer;
  answer["record"] = tarvex::Base64::Encode(*record);
  reply(Ok(answer));
}

}  // namespace virtual_camera
