// Pan/tilt moves, and the stop that follows a timed one.
#include "json_access.h"
#include "json_text.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"

namespace qex {
namespace {

/// A code of the cloud, what the device gets for it, and whether a stop follows.
struct Move {
  int code;
  int dir;
  int degree;
  bool timed;
};

/// The cloud's 16/17 and 32/33 are the device's 32 and 16: the crossing is deliberate.
constexpr Move kMoves[] = {
    {2, 2, 2, true},    {3, 2, 2, false},   {4, 4, 2, true},    {5, 4, 2, false},
    {8, 8, 0, false},   {16, 32, 2, true},  {17, 32, 2, false}, {32, 16, 2, true},
    {33, 16, 2, false}, {64, 64, 0, false},
};

constexpr int kSetDelay = 0;
constexpr int kCancelStop = 1;

const Move* FindMove(int code) {
  for (const Move& move : kMoves) {
    if (move.code == code) {
      return &move;
    }
  }
  return nullptr;
}

constexpr char kStopFirstAxis[] =
    R"({"type":"set_cloud_ctrl","module":"BUS_REQUEST_MESSAGE","body":{"dir":8,"degree":0}})";
constexpr char kStopSecondAxis[] =
    R"({"type":"set_cloud_ctrl","module":"BUS_REQUEST_MESSAGE","body":{"dir":64,"degree":0}})";

/// The stop that ends a timed move, by the move's cloud code; null: no such move.
const char* StopRequest(int code) {
  switch (code) {
    case 2:
    case 4:
      return kStopFirstAxis;
    case 16:
    case 32:
      return kStopSecondAxis;
    default:
      return nullptr;
  }
}

/// Travels with the delayed stop.
class TcpCloudStopData : public tarvex::MessageData {
 public:
  explicit TcpCloudStopData(int code) : dir(code) {}
  int32_t dir;  ///< cloud code of the move to be stopped
};

}  // namespace

bool MQTTAdapter::DoCmdCtrlCloud(const Json::Value& payload, const std::string& version,
                                 Json::Value& /*response*/) {
  // The payload's own "type" is not looked at: deliberate.
  if (version != kVersion) {
    return false;
  }
  const Json::Value& body = Member(payload, "body");
  if (!HasMember(body, "type")) {
    ADAPTER_LOG(kLogError, "set_cloud_ctrl json is err");
    return false;
  }
  const int code = body["type"].asInt();
  if (code == kSetDelay && body.isMember("value")) {
    m_cloud_ctrl_delay_ = body["value"].asInt();
    ADAPTER_LOG(kLogInfo, "set_cloud_ctrl set timeout:%d", m_cloud_ctrl_delay_);
    return true;
  }
  if (code == kCancelStop) {
    ClearPosted(TCP_SESSION_STOP_CLOUDCTRL);
    return true;
  }
  const Move* move = FindMove(code);
  if (move == nullptr) {
    return true;  // Deliberate: an unknown code is carried out by doing nothing.
  }

  Json::Value& request = KeptRequest("set_cloud_ctrl");
  request["module"] = "BUS_REQUEST_MESSAGE";
  Json::Value& position = request["body"];
  position["dir"] = move->dir;
  position["degree"] = move->degree;
  std::string text;
  if (!Json::Json2String(request, text)) {
    ADAPTER_LOG(kLogInfo, "Json2String is error");
    return false;
  }
  ClearPosted(TCP_SESSION_STOP_CLOUDCTRL);
  ADAPTER_LOG(kLogInfo, "set_cloud_ctrl senddp:%s", text.c_str());
  // What counts is that the reply is JSON, not the result of the send.
  std::string reply;
  SendBusRequest(kQueuePanTilt, text, kPanTiltTimeout_ms, &reply);
  Json::Value ignored;
  if (!Json::String2Json(reply, ignored)) {
    return false;
  }
  if (move->timed) {
    boost::shared_ptr<TcpCloudStopData> stop(new TcpCloudStopData(code));
    ADAPTER_LOG(kLogInfo, "set_cloud_ctrl PostDelayed:%d,dir:%d", m_cloud_ctrl_delay_, code);
    PostToSelfDelayed(m_cloud_ctrl_delay_, TCP_SESSION_STOP_CLOUDCTRL, stop);
  }
  return true;
}

void MQTTAdapter::OnStopCloudCtrl(const tarvex::Message& msg) {
  const auto stop = boost::static_pointer_cast<TcpCloudStopData>(msg.data);
  if (!stop) {
    return;
  }
  const char* request = StopRequest(stop->dir);
  if (request == nullptr) {
    ADAPTER_LOG_AS("OnMessage", kLogError, "TCP_SESSION_STOP_CLOUDCTRL message is error:%d",
                   stop->dir);
    return;
  }
  std::string reply;
  SendBusRequest(kQueuePanTilt, request, kPanTiltTimeout_ms, &reply);
  Json::Value ignored;
  if (!Json::String2Json(reply, ignored)) {
    // The text sent, not the reply: deliberate.
    ADAPTER_LOG_AS("OnMessage", kLogError, "TCP_SESSION_STOP_CLOUDCTRL message is error:%s",
                   request);
  }
}

}  // namespace qex
