#include "base_adapter.h"

void destory_adapter(BaseAdapter* adapter) { delete adapter; }
