// A plug-in as it should be; it counts the adapters that live.
#include "idle_adapter.h"

extern "C" {
__attribute__((visibility("default"))) int living_adapters = 0;
}

BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService> event_service, int id) {
  ++living_adapters;
  return new IdleAdapter(event_service, id);
}

void destory_adapter(BaseAdapter* adapter) {
  --living_adapters;
  delete adapter;
}
