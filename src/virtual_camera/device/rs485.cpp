#include "virtual_camera/device/rs485.h"

#include <utility>

#include "json_text.h"
#include "tarvex/base64.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

Rs485::Rs485(SerialLines& lines, const std::string& directory, Announcer& announcer,
             std::function<bool()> is_up)
    : lines_(lines), directory_(directory), announcer_(announcer), is_up_(std::move(is_up)) {
  lines.Begin(directory, [this](int channel, const std::string& bytes) { Input(channel, bytes); });
}

size_t Rs485::Checked(int channel) {
  if (channel < 0 || channel >= SerialLines::kChannels) {
    throw RequestError("there is no channel " + std::to_string(channel));
  }
  return static_cast<size_t>(channel);
}

size_t Rs485::Write(int channel, const std::string& bytes) {
  Counts& counts = counts_[Checked(channel)];
  const size_t taken = lines_.Write(channel, bytes);
  counts.written += static_cast<int64_t>(taken);
  counts.dropped += static_cast<int64_t>(bytes.size() - taken);
  return taken;
}

void Rs485::Input(int channel, const std::string& bytes) {
  Counts& counts = counts_[Checked(channel)];
  if (!is_up_()) {
    return;  // a camera that reboots reads nothing
  }
  counts.read += static_cast<int64_t>(bytes.size());
  Json::Value event;
  event["body"]["source"] = channel;
  event["body"]["rs485_data"] = tarvex::Base64::Encode(bytes);
  event["body"]["data_len"] = static_cast<int>(bytes.size());
  std::string text;
  Json::Json2String(event, text);
  announcer_.Announce("EVS_RS485_READ", text);
}

Json::Value Rs485::State() const {
  Json::Value state(Json::arrayValue);
  for (int channel = 0; channel < SerialLines::kChannels; ++channel) {
    const Counts& counts = counts_[Checked(channel)];
    Json::Value line;
    line["path"] = lines_.Path(channel);
    line["link"] = directory_ + "/rs485-" + std::to_string(channel);
    line["written"] = static_cast<Json::Int64>(counts.written);
    line["dropped"] = static_cast<Json::Int64>(counts.dropped);
    line["read"] = static_cast<Json::Int64>(counts.read);
    state.append(line);
  }
  return state;
}

}  // namespace virtual_camera
