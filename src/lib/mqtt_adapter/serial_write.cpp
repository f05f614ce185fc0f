// Bytes from the cloud to the camera's RS-485 channels.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "json_access.h"
#include "log.h"
#include "mqtt_adapter.h"
#include "protocol.h"
#include "tarvex/base64.h"

namespace qex {
namespace {

/// What stands in front of the data of a write.
struct SerialHeader {
  int32_t word;
  int32_t channel;
};
static_assert(sizeof(SerialHeader) == 8, "the header is two words");

constexpr int32_t kHeaderWord = 111;
constexpr size_t kMaxData = 1016;
constexpr int kStrictPaddedWhole =
    tarvex::Base64::kParseStrict | tarvex::Base64::kPaddingRequired | tarvex::Base64::kEndAtBuffer;
static_assert(kStrictPaddedWhole == 21, "the decoder's flags");

/// A channel of the wrong type is none that exists: the chunk is refused, not the
/// ones after it.
int ChannelOf(const Json::Value& value) {
  return value.isConvertibleTo(Json::intValue) ? value.asInt() : -1;
}

/// Numbers and truth values count as the text they are written in; what is no text
/// is no data.
std::string DataOf(const Json::Value& value) {
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : std::string();
}

}  // namespace

bool MQTTAdapter::DoCmdWrite485(const Json::Value& payload, const std::string& /*version*/,
                                Json::Value& /*response*/) {
  if (!TypeIs(payload, "serial_data")) {
    return false;
  }
  const Json::Value& chunks = Member(Member(payload, "body"), "serialData");
  if (!chunks.isArray()) {
    return false;
  }
  for (const Json::Value& chunk : chunks) {
    const std::string text = DataOf(Member(chunk, "data"));
    const Json::Value& length = Member(chunk, "dataLen");
    std::string decoded;
    // Whether the text was well formed is not looked at: what it gave is sent.
    tarvex::Base64::DecodeFromArray(text.data(), text.size(), kStrictPaddedWhole, &decoded,
                                    nullptr);
    SendSerialDataToEvt(ChannelOf(Member(chunk, "serialChannel")), decoded,
                        length.isInt() ? length.asInt() : 0);
  }
  return true;
}

void MQTTAdapter::SendSerialDataToEvt(int channel, const std::string& data, int /*len*/) {
  // The stated length is ignored on purpose: the packet's follows from the data.
  if (static_cast<unsigned int>(channel) > 1) {
    ADAPTER_LOG(kLogError, "Err Channel:%d.", channel);
    return;
  }
  if (data.empty()) {
    ADAPTER_LOG(kLogError, "Err Data Is Null.");
    return;
  }
  const SerialHeader header = {kHeaderWord, channel};
  std::string packet(reinterpret_cast<const char*>(&header), sizeof(header));
  packet.append(data, 0, kMaxData);
  std::string reply;
  SendBusRequest(kQueueSerial, packet, kSerialTimeout_ms, &reply);
  // Logged as sent whatever became of it, also without a bus client.
  ADAPTER_LOG(kLogInfo, "SendSerialDataToEvt:%d.", static_cast<int>(packet.size()));
}

}  // namespace qex
