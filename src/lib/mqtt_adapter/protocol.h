// Every fixed number and name that the adapter shares with the host, the cloud
// and the device, once.
#pragma once

#include <cstddef>

namespace qex {

/// The only message format version there is, for requests and publications alike.
constexpr char kVersion[] = "1.0";

/// Result of Initialize when a database client is missing.
constexpr int MQTT_ADAPTER_INIT_FAILED = 1;

/// Recognition results that may wait for their acknowledgement.
constexpr size_t kMaxPendingResults = 20;

/// Results of the internal operations, in the manner of HTTP; also the values of
/// "state_code" in answers.
constexpr int kStateOk = 200;
constexpr int kStateBad = 400;
constexpr int kStateFailed = 500;

/// The tag of a publication names its producer; the host hands it back.
enum PublishTag : unsigned long long {
  kTagIvsResult = 11,
  kTagLanectrlResult = 12,
  kTagGpioIn = 13,
  kTagSerialData = 14,
  kTagSnapshot = 15,
  kTagOfflineResult = 16,
  kTagOfflineRecord = 17,
  kTagBindDeviceList = 18,
  kTagAgentRtspUrl = 19,
  kTagAgentTalkbackPort = 20,
  kTagGetImageById = 21,
  kTagWhiteListOperator = 22,
  kTagGetDeviceTimestamp = 23,
  kTagWlCheckStatus = 24,
  kTagGetSn = 25,
  kTagGetLastResult = 26,
  kTagGetIoOutStatus = 27,
  kTagGetAdVoice = 28,
  kTagGetLcdBright = 29,
};

/// Messages that the adapter posts to itself. 199404 is reserved and ignored.
enum MessageId : unsigned int {
  TCP_SESSION_SEND_IVS_RESULT = 199401,
  TCP_SESSION_SEND_OFFLINE_RECORD = 199402,
  TCP_SESSION_NOTIFY_OFFLINE_COUNT = 199403,
  TCP_SESSION_RESERVED = 199404,
  TCP_SESSION_STOP_CLOUDCTRL = 199405,
};

/// Pause between two re-deliveries, and before the count notice, milliseconds.
constexpr int kOfflinePause_ms = 5000;

/// Loopback endpoints and names of the device.
constexpr char kLoopback[] = "127.0.0.1";
constexpr int kBusPort = 6101;
constexpr int kDatabasePort = 6102;
constexpr char kBusClientName[] = "adapter";
constexpr char kSystemDatabase[] = "skvdb";
constexpr char kUserDatabase[] = "usr_data_kvdb";

/// Bus topics.
constexpr char kTopicIvsResult[] = "BUS_SRV_IVS_RESULT";
constexpr char kTopicLanectrlResult[] = "BUS_SRV_LANECTRL_RESULT";
constexpr char kTopicExternalTrigger[] = "EVT_SRV_EXTERNAL_TRIGGER";
constexpr char kTopicSerialRead[] = "EVS_RS485_READ";
constexpr char kTopicIpChanged[] = "SYS_SRV_IP_CHANGED";
constexpr char kTopicNameChanged[] = "SS_DEV_NAME_CHANGED";

/// Service queues of the bus. The agent services' queues are named like their
/// requests.
constexpr char kQueueSystem[] = "SS_BUS_REQUEST";
constexpr char kQueueDevices[] = "EVS_BUS_REQUEST";
constexpr char kQueueGpio[] = "EVS_GPIO_CONTROL";
constexpr char kQueueSerial[] = "EVS_RS485_WRITE";
constexpr char kQueueRecognition[] = "ALG_REQUEST_MESSAGE";
constexpr char kQueueAdSettings[] = "AD_HTTP_REQUESTION";
constexpr char kQueuePanTilt[] = "BUS_REQUEST_MESSAGE";
constexpr char kQueueResults[] = "BUS_GET_IVS_INFO";
constexpr char kQueueWhiteList[] = "BUS_WHITE_LIST_INFO";

/// How long each request waits for its answer, milliseconds.
constexpr int kTriggerTimeout_ms = 5000;
constexpr int kGpioTimeout_ms = 300;
constexpr int kSerialTimeout_ms = 300;
constexpr int kSetTimeTimeout_ms = 5000;
constexpr int kRebootTimeout_ms = 3000;
constexpr int kIoOutStatusTimeout_ms = 3000;
constexpr int kLastResultTimeout_ms = 3000;
constexpr int kPictureTimeout_ms = 3000;
constexpr int kAdSettingsTimeout_ms = 5000;
constexpr int kPanTiltTimeout_ms = 1000;
constexpr int kAgentTimeout_ms = 3000;
constexpr int kStayEventTimeout_ms = 5000;
constexpr int kWhiteListTimeout_ms = 3000;
constexpr int kWhiteListSelectTimeout_ms = 2000;
constexpr int kOfflineStoreTimeout_ms = 5000;

}  // namespace qex
