// One readable line per message, for the person who watches the agent.
#pragma once

#include <string>

#include <json/value.h>

namespace agent {

/// What has become of a message.
enum class Fate {
  kAcknowledged,
  kLinkDown,         ///< never sent
  kLinkLost,         ///< sent, and the link was lost before an acknowledgement
  kOfflineBusy,      ///< dropped: another re-delivered record is under way
  kBacklogFull,      ///< dropped: the broker owes too many acknowledgements
  kUnheard,          ///< taken by the broker, but nobody subscribes to it
  kRefusedByBroker,  ///< refused by the broker
  kNotPublishable,   ///< dropped: such as larger than the broker takes
};

const char* FateText(Fate fate);

/// Describes a message of the plug-in without its time and fate, such as
/// "ivs_result tag 11 plate ABC123 confidence 97 picture file:///...". Anything but
/// plate results shows its payload, cut to about 100 bytes. Never throws.
std::string DescribeMessage(const std::string& name, const Json::Value& payload,
                            unsigned long long tag);

}  // namespace agent
