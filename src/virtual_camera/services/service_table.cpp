#include "virtual_camera/services/services.h"

namespace virtual_camera {

const std::vector<ServiceRow>& ServiceTable() {
  static const std::vector<ServiceRow> table = {
      {"BUS_GET_IVS_INFO", CreateResults},
  };
  return table;
}

}  // namespace virtual_camera
