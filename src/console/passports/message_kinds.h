// The kinds of messages that have passports.
#pragma once

#include <string>
#include <vector>

namespace console {

/// A topic of the bus, what its messages are on the page, and the name under which the
/// plug-in publishes them.
struct MessageKind {
  const char* topic;
  const char* kind;
  const char* name;
};

const std::vector<MessageKind>& MessageKinds();

/// That of recognition results.
const MessageKind& ResultKind();

/// Null where there is none.
const MessageKind* KindOfTopic(const std::string& topic);
const MessageKind* KindOfName(const std::string& name);

}  // namespace console
