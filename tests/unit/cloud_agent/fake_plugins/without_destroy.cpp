#include "idle_adapter.h"

BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService> event_service, int id) {
  return new IdleAdapter(event_service, id);
}
