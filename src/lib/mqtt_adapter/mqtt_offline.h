// Access to the device's store of results that were not delivered.
#pragma once

#include <cstdint>
#include <list>

#include <json/value.h>
#include <boost/enable_shared_from_this.hpp>
#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>

#include "ivs_records.h"
#include "styled_document.h"
#include "tarvex/dp_client.h"
#include "tarvex/event_service.h"

namespace qex {

/// Counts, fetches, marks and clears undelivered results. It publishes nothing.
///
/// Every access is one bus request that blocks for up to five seconds. Nothing
/// reports a failure: a request that fails counts as an empty reply. To be called
/// from one thread at a time.
class MqttOfflineMgr : boost::noncopyable, public boost::enable_shared_from_this<MqttOfflineMgr> {
 public:
  MqttOfflineMgr() {}
  virtual ~MqttOfflineMgr() {}

  /// Replaces the event service and the bus client. @return 200
  int Init(boost::shared_ptr<tarvex::EventService> event_service,
           boost::shared_ptr<tarvex::DpClient> dp_client);

  /// @return the size of the local queue, or if that is empty the store's count.
  int GetCountOfflineRecords();

  /// Fetches a batch of at most five into the queue. @return how many came.
  int StartCheckOfflineRecords();

  /// The record to deliver next: the back of the queue, which is refilled from the
  /// store when it is empty. The manager keeps owning it.
  /// @return null when there is none, or none may be fetched any more.
  IvsOfflineInfo* GetFirstOfflieRecord();

  /// Tells the store that a result was delivered. With `is_offline` the current
  /// record, whatever its id, leaves the queue as well. @return 200
  int SetOfflinePushSuccess(uint32_t plate_id, bool is_offline);

  /// Empties the store; the queue stays. @return 200
  int ClearAllOfflineRecord();

  boost::shared_ptr<tarvex::EventService> m_event_service_;
  boost::shared_ptr<tarvex::DpClient> m_dp_client_;
  /// Fetched and not yet confirmed; delivered from the back.
  std::list<IvsOfflineInfo> m_offline_records_;
  /// How many records may still be fetched in the current run.
  uint32_t m_remain_count_ = 100;
  /// The id that every fetch carries.
  uint32_t m_min_id_ = 0;

 private:
  /// @param request in the styled form, unlike those to every other service
  /// @return the reply; what counts is that, not the result of the send.
  std::string AskStore(const std::string& request);

  StyledDocument m_status_request_;  ///< kept: every confirmation sends one
};

}  // namespace qex
