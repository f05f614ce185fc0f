#include "console/passports/message_kinds.h"

#include <algorithm>

namespace console {
namespace {

template <typename Test>
const MessageKind* FindKind(Test is_it) {
  const std::vector<MessageKind>& kinds = MessageKinds();
  const auto found = std::find_if(kinds.begin(), kinds.end(), is_it);
  return found == kinds.end() ? nullptr : &*found;
}

}  // namespace

const std::vector<MessageKind>& MessageKinds() {
  static const std::vector<MessageKind> kinds = {
      {"BUS_SRV_IVS_RESULT", "result", "ivs_result"},
      {"BUS_SRV_LANECTRL_RESULT", "lane", "lanectrl_result"},
      {"EVT_SRV_EXTERNAL_TRIGGER", "input", "gpio_in"},
      {"EVS_RS485_READ", "serial", "serial_data"},
      {"SS_DEV_NAME_CHANGED", "identity", "SS_DEV_NAME_CHANGED"},
      {"SYS_SRV_IP_CHANGED", "identity", "SYS_SRV_IP_CHANGED"},
  };
  return kinds;
}

const MessageKind& ResultKind() { return MessageKinds().front(); }

const MessageKind* KindOfTopic(const std::string& topic) {
  return FindKind([&topic](const MessageKind& kind) { return kind.topic == topic; });
}

const MessageKind* KindOfName(const std::string& name) {
  return FindKind([&name](const MessageKind& kind) { return kind.name == name; });
}

}  // namespace console
