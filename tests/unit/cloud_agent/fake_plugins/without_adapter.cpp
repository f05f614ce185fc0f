#include "base_adapter.h"

BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService>, int) { return nullptr; }

void destory_adapter(BaseAdapter* adapter) { delete adapter; }
