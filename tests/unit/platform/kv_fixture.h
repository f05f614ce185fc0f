// A server of key-value databases, and the device that fills them.
#pragma once

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cache/kvdb_client.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "support/nats_server.h"
#include "support/wait_until.h"

class KvTest : public testing::Test {
 protected:
  KvTest() { Open("skvdb"); }

  tarvex::SocketAddress Address() const {
    return tarvex::SocketAddress("127.0.0.1", server_.port());
  }

  boost::shared_ptr<cache::KvdbClient> NewClient(const std::string& name = "skvdb") const {
    return cache::KvdbClient::CreateKvdbNetClient(name, Address());
  }

  /// Has the device write to a database from here on, which is created if need be.
  void Open(const std::string& name) {
    store_.reset();
    jet_stream_.reset();
    device_ = tarvex::NatsLink::Connect(Address(), "device");
    jsCtx* context = nullptr;
    ASSERT_EQ(natsConnection_JetStream(&context, device_->get(), nullptr), NATS_OK);
    jet_stream_.reset(context);
    kvStore* store = nullptr;
    // Right after a start the server may need a moment for its storage.
    ASSERT_TRUE(WaitUntil([&] { return OpenOrCreate(name, &store) == NATS_OK; }));
    store_.reset(store);
  }

  void Put(const std::string& key, const std::string& value) {
    ASSERT_EQ(kvStore_Put(nullptr, store_.get(), key.c_str(), value.data(),
                          static_cast<int>(value.size())),
              NATS_OK);
  }
  void Delete(const std::string& key) {
    ASSERT_EQ(kvStore_Delete(store_.get(), key.c_str()), NATS_OK);
  }
  void DeleteDatabase(const std::string& name) {
    ASSERT_EQ(js_DeleteKeyValue(jet_stream_.get(), name.c_str()), NATS_OK);
  }

  /// The value of a key, or "(none)".
  static std::string Get(cache::KvdbClient& client, const std::string& key) {
    std::string value = "(none)";
    const int result = client.GetValue(key, &value);
    EXPECT_EQ(result != 0, value != "(none)");
    return value;
  }

  static bool Becomes(cache::KvdbClient& client, const std::string& key,
                      const std::string& expected) {
    return WaitUntil([&] { return Get(client, key) == expected; });
  }

  NatsServer server_{NatsServer::Storage::kJetStream};
  std::shared_ptr<tarvex::NatsLink> device_;
  tarvex::NatsJetStream jet_stream_;
  tarvex::NatsStore store_;

 private:
  natsStatus OpenOrCreate(const std::string& name, kvStore** store) {
    const natsStatus status = js_KeyValue(store, jet_stream_.get(), name.c_str());
    if (status != NATS_NOT_FOUND) {
      return status;
    }
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = name.c_str();
    config.StorageType = js_FileStorage;
    return js_CreateKeyValue(store, jet_stream_.get(), &config);
  }
};
