// The adapter: translates between the cloud's JSON messages and the camera's
// internal bus. This header is the table of contents; each group below is defined
// in the source file that it names.
#pragma once

#include <pthread.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <json/value.h>
#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include "base_adapter.h"
#include "cache/kvdb_client.h"
#include "ivs_records.h"
#include "mqtt_offline.h"
#include "sigslot.h"
#include "styled_document.h"
#include "tarvex/dp_client.h"
#include "tarvex/message.h"

namespace qex {

/// Lives on the host's event-service thread: the host, the event service and the
/// bus client all call it there. Without a bus client, a database or the offline
/// manager it stays callable and reports failure.
class MQTTAdapter : public BaseAdapter,
                    public sigslot::has_slots<sigslot::single_threaded>,
                    public tarvex::MessageHandler {
 public:
  // --- mqtt_adapter.cpp: life cycle and the host's notifications ---
  MQTTAdapter(boost::shared_ptr<tarvex::EventService> event_service, int id);
  ~MQTTAdapter() override;
  int Initialize(std::function<std::string(const std::string&, const std::string&)> func) override;
  void OnMQTTDisconnected() override;
  void OnMQTTConnected() override;

  // --- requests.cpp: names, subscription, dispatch, what the handlers share ---
  void GetMessageNames(std::set<std::string>& requests, std::set<std::string>& publishes) override;
  bool SubscribeMessage(const std::string& name) override;
  void UnsubscribeMessage(const std::string& name) override;
  bool RequestMessage(const std::string& name, const Json::Value& payload,
                      const std::string& version, Json::Value& response) override;
  /// Whether the payload is an object with a string "type".
  bool CheckPayloadIsValid(const Json::Value& payload);

  // --- bus_events.cpp: where bus messages and posted messages go ---
  void OnDpMessage(boost::shared_ptr<tarvex::DpClient> client,
                   boost::shared_ptr<tarvex::DpMessage> msg);
  void OnMessage(tarvex::Message* msg) override;

  // --- device_identity.cpp ---
  void OnIpChange(const std::string& body);
  void OnNameChange(const std::string& body);
  std::string GetDevName();
  std::string GetDeviceIpFromDb();
  std::string GetOemSn();
  void GetDevInfoJson(Json::Value& out);
  int PackPlateBasicInfo(Json::Value& out);

  // --- plate_json.cpp: one recognition result as JSON. The callers hold
  // m_result_mutex_; every TH_PlateResult is the head of a whole record. ---
  int PackPlateLicenseInfo(const IVS_RESULT_PARAM* record, const Members& result, int isoffline);
  int PackPlateTimestapInfo(const TH_PlateResult* plate, const Members& plate_result);
  int PackPlateDetailInfo(const TH_PlateResult* plate, const Members& plate_result);
  int PackPlateLocationInfo(const TH_PlateResult* plate, const Members& plate_result);
  int PackPlateExtInfo(const TH_PlateResult* plate, const Members& plate_result);
  int PackPlateImgInfo(const IVS_RESULT_PARAM* record, const Members& plate_result);
  std::string GetPlateInfoJson(const IVS_RESULT_PARAM* record);

  // --- plate_events.cpp: recognition results published, the last one on request ---
  void OnIvsResultEvent(const IVS_RESULT_PARAM* record, int isoffline);
  void SendIvsResultEvent(const IVS_RESULT_PARAM* record);
  int SendLastResult(const Json::Value& body);
  bool DoCmdGetLastResult(const Json::Value& payload, const std::string& version,
                          Json::Value& response);

  // --- lane_control.cpp ---
  int OnLanectrlResultEvent(Json::Value& message, int isoffline);
  int SendLanectrlResultEvent(Json::Value& message);
  int PackLanectrlImgInfo(Json::Value snapshot, Json::Value& result);
  void IvsStruct2Json(IVS_EVENT_PARAM* event, Json::Value& out);

  // --- io_events.cpp ---
  void OnGpioEvent(const std::string& text);
  void GetSerialPushData(const std::string& text);

  // --- basic_commands.cpp ---
  bool DoCmdTrigger(const Json::Value& payload, const std::string& version, Json::Value& response);
  bool DoCmdGpioOut(const Json::Value& payload, const std::string& version, Json::Value& response);
  bool DoCmdSetTime(const Json::Value& payload, const std::string& version, Json::Value& response);
  bool DoCmdReboot(const Json::Value& payload, const std::string& version, Json::Value& response);
  bool DoCmdGetSn(const Json::Value& payload, const std::string& version, Json::Value& response);
  bool DoCmdGetDeviceTimestamp(const Json::Value& payload, const std::string& version,
                               Json::Value& response);
  bool DoCmdGetIoOutStatus(const Json::Value& payload, const std::string& version,
                           Json::Value& response);

  // --- serial_write.cpp ---
  bool DoCmdWrite485(const Json::Value& payload, const std::string& version, Json::Value& response);
  void SendSerialDataToEvt(int channel, const std::string& data, int len);

  // --- ad_settings.cpp ---
  bool DoCmdGetAdVoice(const Json::Value& payload, const std::string& version,
                       Json::Value& response);
  bool DoCmdSetAdVoice(const Json::Value& payload, const std::string& version,
                       Json::Value& response);
  bool DoCmdGetLcdBright(const Json::Value& payload, const std::string& version,
                         Json::Value& response);
  bool DoCmdSetLcdBright(const Json::Value& payload, const std::string& version,
                         Json::Value& response);

  // --- pan_tilt.cpp ---
  bool DoCmdCtrlCloud(const Json::Value& payload, const std::string& version,
                      Json::Value& response);

  // --- pictures.cpp ---
  bool DoCmdGetImageById(const Json::Value& payload, const std::string& version,
                         Json::Value& response);
  bool DoCmdSnapshot(const Json::Value& payload, const std::string& version, Json::Value& response);

  // --- agent_commands.cpp ---
  bool DoCmdBindDeviceList(const Json::Value& payload, const std::string& version,
                           Json::Value& response);
  bool DoCmdAgentRtspUrl(const Json::Value& payload, const std::string& version,
                         Json::Value& response);
  bool DoCmdAgentTalkbackPort(const Json::Value& payload, const std::string& version,
                              Json::Value& response);
  bool DoCmdAgentLanectrlResultCfg(const Json::Value& payload, const std::string& version,
                                   Json::Value& response);

  // --- white_list.cpp ---
  bool DoCmdForWLOperator(const Json::Value& payload, const std::string& version,
                          Json::Value& response);
  int DeleteWlInfo(const Json::Value& body, Json::Value& result);
  int ReplaceWlInfo(const Json::Value& body, Json::Value& result);
  int SelectWlInfo(const Json::Value& body, Json::Value& result);
  bool DoCmdWLCheckStatus(const Json::Value& payload, const std::string& version,
                          Json::Value& response);
  int SetWLCheckStatus(const Json::Value& body);
  int SendWLCheckStatus();

  // --- offline_commands.cpp: re-delivery and the host's confirmations ---
  bool DoCmdSendOffline(const Json::Value& payload, const std::string& version,
                        Json::Value& response);
  int OnNotifyOfflineCount();
  void OnMessagePublished(unsigned long long tag) override;

 private:
  using RequestHandler = bool (MQTTAdapter::*)(const Json::Value& payload,
                                               const std::string& version, Json::Value& response);
  struct RequestRow {
    boost::string_view name;
    RequestHandler handler;
  };
  struct TopicRow {
    boost::string_view topic;
    void (MQTTAdapter::*handler)(const std::string& body);
  };
  struct PostedRow {
    unsigned int id;
    void (MQTTAdapter::*handler)(const tarvex::Message& msg);
  };
  struct KeptReply {
    std::string text;
    /// Replaced, never changed: somebody may be reading it.
    std::shared_ptr<const Json::Value> json;
  };
  static const RequestRow kRequests[];
  static const TopicRow kTopics[];
  static const PostedRow kPosted[];

  // mqtt_adapter.cpp
  /// Leaves each of the topics of address and name, whatever is thrown for the other.
  /// Throws nothing.
  void StopListeningToIdentity();

  // requests.cpp
  /// The shared check, logging under the name of `function`: the payload is an
  /// object and has a "type", of any kind. @return that, or null
  static const Json::Value* TypeOf(const Json::Value& payload, const char* function);
  /// TypeOf, and whether it is the string `name`.
  static bool IsRequest(const Json::Value& payload, boost::string_view name, const char* function);
  /// Whether the "type" of an object is the string `name`. Logs nothing.
  static bool TypeIs(const Json::Value& payload, boost::string_view name);
  /// A bus request whose members are always the same, kept from one use to the next. Not for lists
  /// of the cloud's: they would be kept as well. @param type a literal
  Json::Value& KeptRequest(const char* type);
  /// Sends one bus request. @return as DpClient::SendRequest; 0 without a bus client.
  int SendBusRequest(const char* queue, const std::string& request, int timeout_ms,
                     std::string* reply);
  /// A service's reply as JSON; null where it is empty or not JSON. One that is the same as the
  /// service's reply before is not read again. @param queue a literal
  std::shared_ptr<const Json::Value> ParsedReply(const char* queue, const std::string& reply);
  /// Sends one bus request. @return its reply as JSON, whatever the send returned.
  std::shared_ptr<const Json::Value> AskForJson(const char* queue, const std::string& request,
                                                int timeout_ms);
  void Publish(const char* name, const Json::Value& payload, unsigned long long tag);

  // bus_events.cpp
  void OnRecognitionResult(const std::string& body);
  void OnLanectrlResult(const std::string& body);
  void OnSendIvsResult(const tarvex::Message& msg);
  void OnSendOfflineRecord(const tarvex::Message& msg);
  void OnSendOfflineCount(const tarvex::Message& msg);
  void PostToSelf(unsigned int id);
  void PostToSelfDelayed(int delay_ms, unsigned int id,
                         boost::shared_ptr<tarvex::MessageData> data);
  void ClearPosted(unsigned int id);
  /// Clears each message that is ever posted, whatever is thrown for another. Throws nothing.
  void ClearAllPosted();

  // plate_json.cpp: the whole payload. Takes a copy of the record: the host's image
  // function may lead back to here and have the caller's confirmed and freed.
  void PackPlateResult(IVS_RESULT_PARAM record, int isoffline, const Members& body);

  // plate_events.cpp: the kept payload, or a new one
  std::unique_ptr<StyledDocument> TakePlatePayload();

  // lane_control.cpp: the payload without its picture references
  void PackLanectrlResult(const Json::Value& message, Json::Value& output);

  // ad_settings.cpp
  std::shared_ptr<const Json::Value> ReadAdRecord();
  bool WriteAdRecord(const Json::Value& request, Json::Value& response);

  // pan_tilt.cpp
  void OnStopCloudCtrl(const tarvex::Message& msg);

  // pictures.cpp
  std::string NextPictureReference(const std::string& path, unsigned int* counter);

  // agent_commands.cpp
  struct AgentQuery;
  bool QueryAgentService(const AgentQuery& query, const Json::Value& payload,
                         const std::string& version);
  bool SendToAgentService(const char* handler, const char* service, const std::string& request,
                          int timeout_ms, std::string* reply);

  // offline_commands.cpp
  void OnOfflineResultPublished();
  void OnLiveResultPublished();

  boost::shared_ptr<tarvex::DpClient> m_dp_client_;
  std::function<std::string(const std::string&, const std::string&)> m_image_func_;
  std::string m_sn_;
  std::string m_dev_ip_;
  std::string m_dev_name_;  ///< Base64 text, or what a name change brought
  int m_cloud_ctrl_delay_;  ///< milliseconds until a timed pan/tilt move is stopped
  boost::shared_ptr<cache::KvdbClient> m_skvdb_client_;
  boost::shared_ptr<cache::KvdbClient> m_ukvdb_client_;
  pthread_mutex_t m_result_mutex_;  ///< recursive: a host may ask for the last result in a slot
  boost::shared_ptr<MqttOfflineMgr> m_offline_mgr_;
  /// Results not yet confirmed, newest at the back, at most kMaxPendingResults.
  std::list<IVS_RESULT_PARAM> m_result_list_;
  /// The payload of the last plate result: the next one changes its values only. Null while one is
  /// at work, so that a result within that, as from the host's image function, has its own.
  std::unique_ptr<StyledDocument> m_plate_payload_;
  std::map<const char*, Json::Value> m_kept_requests_;  ///< by the address of their type
  std::map<const char*, KeptReply> m_kept_replies_;     ///< by the address of their queue
  // The answers with a picture, kept like m_plate_payload_: null while one is at work.
  std::unique_ptr<Json::Value> m_image_answer_;
  std::unique_ptr<Json::Value> m_snapshot_answer_;
  std::string m_network_settings_;             ///< "net_rj45" as last read
  boost::optional<std::string> m_network_ip_;  ///< the address in it
};

}  // namespace qex
