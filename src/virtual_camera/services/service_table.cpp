#include "virtual_camera/services/services.h"

namespace virtual_camera {

const std::vector<ServiceRow>& ServiceTable() {
  static const std::vector<ServiceRow> table = {
      {"ALG_REQUEST_MESSAGE", CreateRecognitionControl},
      {"EVS_GPIO_CONTROL", CreateGpioControl},
      {"EVS_BUS_REQUEST", CreateGpioStatus},
      {"SS_BUS_REQUEST", CreateSystem},
      {"EVS_RS485_WRITE", CreateSerialWrite},
      {"AD_HTTP_REQUESTION", CreateVoiceDisplaySettings},
      {"BUS_REQUEST_MESSAGE", CreatePanTiltControl},
      {"BUS_GET_IVS_INFO", CreateResults},
      {"BUS_WHITE_LIST_INFO", CreateWhiteListRecords},
      {"user_get_mate_info", CreateBoundDevices},
      {"user_get_rtsp_info", CreateRtspAddress},
      {"user_request_talkback", CreateTalkback},
      {"stay_event_enable", CreateStayEvents},
  };
  return table;
}

}  // namespace virtual_camera
