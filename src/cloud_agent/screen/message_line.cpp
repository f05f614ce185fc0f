#include "cloud_agent/screen/message_line.h"

#include "cloud_agent/delivery/host_duties.h"
#include "json_text.h"
#include "tarvex/base64.h"

namespace agent {
namespace {

constexpr std::size_t kMaxPayload_bytes = 100;
constexpr std::size_t kMaxText_bytes = 300;

// Never splits a UTF-8 character.
void Cut(std::string* text, std::size_t max_bytes) {
  if (text->size() <= max_bytes) {
    return;
  }
  std::size_t end = max_bytes;
  while (end > 0 && (static_cast<unsigned char>((*text)[end]) & 0xC0U) == 0x80U) {
    --end;
  }
  text->resize(end);
  *text += "...";
}

// Control characters of received text must not reach a terminal.
std::string Printable(std::string text) {
  for (char& character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      character = '?';
    }
  }
  Cut(&text, kMaxText_bytes);
  return text;
}

std::string Decoded(const Json::Value& base64) {
  if (!base64.isString()) {
    return "";
  }
  const std::string encoded = base64.asString();
  std::string text;
  const bool is_well_formed = tarvex::Base64::DecodeFromArray(
      encoded.data(), encoded.size(),
      tarvex::Base64::kParseStrict | tarvex::Base64::kPaddingAny | tarvex::Base64::kEndAtBuffer,
      &text, nullptr);
  return Printable(is_well_formed ? text : encoded);
}

std::string DescribePlate(const Json::Value& plate) {
  std::string text = " plate " + Decoded(plate["license"]);
  const Json::Value& confidence = plate["confidence"];
  if (confidence.isInt()) {
    text += " confidence " + std::to_string(confidence.asInt());
  }
  if (plate.isMember("imagePath")) {
    text += " picture " + Decoded(plate["imagePath"]);
  }
  return text;
}

}  // namespace

const char* FateText(Fate fate) {
  switch (fate) {
    case Fate::kAcknowledged:
      return "acknowledged";
    case Fate::kLinkDown:
      return "not sent: link down";
    case Fate::kLinkLost:
      return "not acknowledged: link lost";
    case Fate::kOfflineBusy:
      return "dropped: another re-delivery is not acknowledged yet";
    case Fate::kBacklogFull:
      return "dropped: too many messages are not acknowledged yet";
    case Fate::kUnheard:
      return "heard by nobody";
    case Fate::kRefusedByBroker:
      return "refused by the broker";
    case Fate::kNotPublishable:
      return "dropped: cannot be published";
  }
  return "";
}

std::string DescribeMessage(const std::string& name, const Json::Value& payload,
                            unsigned long long tag) {
  const std::string head = name + " tag " + std::to_string(tag);
  const Json::Value& plate = PlateResult(payload);
  if (plate.isObject() && !plate.empty()) {
    return head + DescribePlate(plate);
  }
  std::string text;
  if (!Json::Json2String(payload, text)) {
    text = "(payload is not presentable)";
  }
  Cut(&text, kMaxPayload_bytes);
  return head + " " + Printable(text);
}

}  // namespace agent
