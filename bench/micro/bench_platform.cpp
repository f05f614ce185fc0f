#include "bench_platform.h"

#include <cstdarg>
#include <cstdlib>
#include <list>

#include "cache/kvdb_client.h"
#include "chw_info.h"
#include "json_text.h"
#include "sys_log.h"
#include "tarvex/time_util.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace bench {
namespace {

unsigned long long g_allocations = 0;

struct Reply {
  std::string now;
  std::string next;
};

std::map<std::string, Reply>& Replies() {
  static std::map<std::string, Reply> replies;
  return replies;
}

class Bus : public tarvex::DpClient {
 public:
  int SendRequest(const std::string& type, int /*flags*/, const char* /*data*/, size_t /*length*/,
                  std::string* reply, int /*timeout_ms*/) override {
    const auto found = Replies().find(type);
    if (found == Replies().end()) {
      return 0;
    }
    *reply = found->second.now;
    if (!found->second.next.empty()) {
      found->second.now.swap(found->second.next);
    }
    return 1;
  }
  int ListenMessage(const std::string& /*topic*/, int /*flags*/) override { return 0; }
  int RemoveListenMessage(const std::string& /*topic*/) override { return 0; }
};

boost::shared_ptr<tarvex::DpClient>& BusSlot() {
  static boost::shared_ptr<tarvex::DpClient> bus;
  return bus;
}

class Database : public cache::KvdbClient {
 public:
  int GetValue(const std::string& key, std::string* value) override {
    if (key == "dev_name") {
      *value = "VmlydHVhbCBjYW1lcmE=";
    } else if (key == "net_rj45") {
      *value = R"({"ip":"192.168.1.100","netmask":"255.255.255.0","gateway":"192.168.1.1"})";
    } else {
      *value = "user data";
    }
    return 1;
  }
};

class Identity : public ChwInfo {
 public:
  std::string GetAppVer() override { return "V1.2.3"; }
  std::string GetOemSn() override { return "OEM1"; }
};

}  // namespace

boost::shared_ptr<tarvex::DpClient> TheBus() { return BusSlot(); }

void Answers(const std::string& queue, const std::string& reply, const std::string& next_reply) {
  Replies()[queue] = {reply, next_reply};
}

int AskBus(const std::string& queue, const std::string& request, std::string* reply) {
  return BusSlot()->SendRequest(queue, 0, request.data(), request.size(), reply, 1000);
}

unsigned long long Allocations() { return g_allocations; }

void EventService::Post(tarvex::MessageHandler* handler, unsigned int id,
                        boost::shared_ptr<tarvex::MessageData> data, bool /*time_sensitive*/) {
  posted_.push_back({handler, id, data});
}

void EventService::PostDelayed(int /*delay_ms*/, tarvex::MessageHandler* /*handler*/,
                               unsigned int /*id*/,
                               boost::shared_ptr<tarvex::MessageData> /*data*/) {}

void EventService::Clear(tarvex::MessageHandler* /*handler*/, unsigned int /*id*/,
                         std::list<tarvex::Message>* /*removed*/) {}

void EventService::Deliver() {
  for (size_t i = 0; i < posted_.size(); ++i) {
    tarvex::Message message = posted_[i];
    message.handler->OnMessage(&message);
  }
  posted_.clear();
}

}  // namespace bench

// The allocator, counted.

extern "C" void* malloc(size_t size) {
  ++bench::g_allocations;
  return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
  ++bench::g_allocations;
  return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
  ++bench::g_allocations;
  return __libc_realloc(block, size);
}

// The symbols that the plug-in leaves to the process that loads it.

extern "C" void __sys_log(int /*priority*/, const char* /*source*/, const char* /*function*/,
                          int /*line*/, const char* /*format*/, ...) {}

boost::shared_ptr<tarvex::DpClient> tarvex::DpClient::CreateDpClient(
    boost::shared_ptr<EventService> /*event_service*/, const SocketAddress& /*address*/,
    const std::string& /*name*/) {
  bench::BusSlot().reset(new bench::Bus);
  return bench::BusSlot();
}

boost::shared_ptr<cache::KvdbClient> cache::KvdbClient::CreateKvdbNetClient(
    const std::string& /*name*/, const tarvex::SocketAddress& /*address*/) {
  return boost::shared_ptr<cache::KvdbClient>(new bench::Database);
}

ChwInfo* ChwInfo::Interface() {
  static bench::Identity identity;
  return &identity;
}

std::string hw_sn() { return "SN00000001"; }

unsigned long long tarvex::XTimeUtil::TimeSecond() { return 1700000000; }

std::string tarvex::XTimeUtil::TimeLocalToString(unsigned long long /*seconds*/) {
  return "2023-11-14 22:13:20";
}

void tarvex::XTimeUtil::TimeLocalMake(_TimeS* time, unsigned long long /*seconds*/) {
  *time = {2023, 11, 14, 22, 13, 20};
}
