#include <stdexcept>

#include "base_adapter.h"

// Against the contract, as a broken plug-in may be.
BaseAdapter* create_adapter(boost::shared_ptr<tarvex::EventService>, int) {
  throw std::runtime_error("no adapter today");
}

void destory_adapter(BaseAdapter* adapter) { delete adapter; }
