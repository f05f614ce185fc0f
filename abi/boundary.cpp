// Names the types of include/ that the plug-in uses without passing them through its two
// functions, so that the description of its boundary has them as well.
#include "base_adapter.h"
#include "cache/kvdb_client.h"
#include "chw_info.h"
#include "tarvex/base64.h"
#include "tarvex/dp_client.h"
#include "tarvex/event_service.h"
#include "tarvex/message.h"
#include "tarvex/socket_address.h"
#include "tarvex/time_util.h"

/// @return nothing of use: it is never called.
extern "C" __attribute__((visibility("default"))) int boundary(
    BaseAdapter* /*host*/, cache::KvdbClient* /*database*/, ChwInfo* /*hardware*/,
    tarvex::Base64::DecodeFlags /*flags*/, tarvex::DpClient* /*bus*/, tarvex::DpMessage* /*heard*/,
    tarvex::EventService* /*events*/, tarvex::Message* /*posted*/,
    tarvex::MessageHandler* /*handler*/, tarvex::MessageData* /*data*/,
    tarvex::SocketAddress* /*address*/, tarvex::_TimeS* /*time*/) {
  return 0;
}
