// "camera_ctl trace" and whoever answers it on a real bus.
#include <gmock/gmock.h>

#include <mutex>

#include "desk_camera.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"
#include "support/child_process.h"
#include "support/nats_server.h"

namespace virtual_camera {
namespace {

using ::testing::HasSubstr;

class PassportAtABus : public testing::Test {
 protected:
  /// Has this answered to each question that comes, which is kept.
  void ConsoleAnswers(const std::string& text) {
    answer_ = text;
    natsSubscription* created = nullptr;
    natsConnection_Subscribe(&created, link_->get(), "CONSOLE_PASSPORTS", OnQuestion, this);
    natsConnection_FlushTimeout(link_->get(), 10000);
    subscription_.reset(created);
  }

  /// What camera_ctl prints, on either stream.
  std::string Trace(const std::vector<std::string>& id = {}) {
    std::vector<std::string> command = {CAMERA_CTL, "trace"};
    command.insert(command.end(), id.begin(), id.end());
    ChildProcess ctl(command, directory_.path() + "/out",
                     {{"TARVEX_BUS_ADDRESS", server_.address()}});
    EXPECT_TRUE(ctl.WaitForExit());
    exit_code_ = ctl.exit_code().value_or(-1);
    return ctl.Output();
  }

  /// The latest that was asked.
  std::string Question() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return question_;
  }

  std::mutex mutex_;  // guards the next: it is written on a thread of the library
  std::string question_;
  TestDirectory directory_;
  NatsServer server_;
  std::string answer_;
  int exit_code_ = 0;
  std::shared_ptr<tarvex::NatsLink> link_ =
      tarvex::NatsLink::Connect({"127.0.0.1", server_.port()}, "console");
  tarvex::NatsSubscription subscription_;

 private:
  static void OnQuestion(natsConnection* connection, natsSubscription*, natsMsg* received,
                         void* closure) {
    const tarvex::NatsMessage message(received);
    auto* self = static_cast<PassportAtABus*>(closure);
    {
      const std::lock_guard<std::mutex> lock(self->mutex_);
      self->question_.assign(natsMsg_GetData(received),
                             static_cast<size_t>(natsMsg_GetDataLength(received)));
    }
    if (!self->answer_.empty()) {
      natsConnection_PublishString(connection, natsMsg_GetReply(received), self->answer_.c_str());
    }
  }
};

TEST_F(PassportAtABus, IsAskedForByItsIdAndPrinted) {
  ConsoleAnswers(R"({"ok":true,"passport":{"id":"result/CAM1/12","state":"delivered"}})");
  EXPECT_THAT(Trace({"12"}), HasSubstr("result/CAM1/12    delivered\n"));
  EXPECT_EQ(Question(), R"({"id":"12"})");
  EXPECT_EQ(exit_code_, 0);
}

TEST_F(PassportAtABus, IsListedWithoutAnId) {
  ConsoleAnswers(R"({"ok":true,"passports":[{"id":"result/CAM1/12","state":"stored"}]})");
  EXPECT_THAT(Trace(), HasSubstr("result/CAM1/12  stored"));
  EXPECT_EQ(Question(), "{}");
}

TEST_F(PassportAtABus, NeedsAConsole) {
  EXPECT_THAT(Trace({"12"}), HasSubstr("camera_ctl: no console is running on the bus at " +
                                       server_.address() + "; \"./dev run\" starts one\n"));
  EXPECT_EQ(exit_code_, 1);
}

TEST_F(PassportAtABus, MayBeUnknown) {
  ConsoleAnswers(R"({"ok":false,"error":"there is no \"99\""})");
  EXPECT_THAT(Trace({"99"}), HasSubstr("camera_ctl: there is no \"99\"\n"));
  EXPECT_EQ(exit_code_, 1);
}

TEST_F(PassportAtABus, MayBeGarbled) {
  for (const char* garbage :
       {"nonsense", "[]", R"({"ok":true})", R"({"ok":true,"passport":[]})", R"({"passport":{}})"}) {
    ConsoleAnswers(garbage);
    EXPECT_THAT(Trace({"12"}), HasSubstr("the console's answer is not understood\n")) << garbage;
    EXPECT_EQ(exit_code_, 1);
    link_->Retire(subscription_.release());
  }
}

TEST_F(PassportAtABus, IsNotWaitedForLong) {
  ConsoleAnswers("");
  EXPECT_THAT(Trace({"12"}), HasSubstr("camera_ctl: the console does not answer: Timeout\n"));
}

}  // namespace
}  // namespace virtual_camera
