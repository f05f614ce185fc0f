#include "sigslot.h"

#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

using sigslot::single_threaded;
using Signal = sigslot::signal2<const std::string&, int, single_threaded>;

/// Writes its name and what it receives into a journal, then does as it was told.
class Receiver : public sigslot::has_slots<single_threaded> {
 public:
  Receiver(const std::string& name, std::string& journal) : name_(name), journal_(&journal) {}

  void OnText(const std::string& text, int count) {
    *journal_ += name_ + "(" + text + "," + std::to_string(count) + ") ";
    // Kept here: the receiver may die of what it does.
    const std::function<void()> what_to_do = then;
    if (what_to_do) {
      what_to_do();
    }
  }
  void OnFour(const std::string& first, int second, const std::string& third,
              unsigned long long fourth) {
    *journal_ += first + " " + std::to_string(second) + " " + third + " " + std::to_string(fourth);
  }

  std::function<void()> then;

 private:
  std::string name_;
  std::string* journal_;
};

class SignalTest : public testing::Test {
 protected:
  SignalTest() {
    signal_->connect(a_.get(), &Receiver::OnText);
    signal_->connect(b_.get(), &Receiver::OnText);
  }

  /// Emits ("x", 1) and tells who received it.
  std::string Emit() {
    journal_.clear();
    signal_->emit("x", 1);
    return journal_;
  }

  std::string journal_;
  std::unique_ptr<Receiver> a_ = std::make_unique<Receiver>("a", journal_);
  std::unique_ptr<Receiver> b_ = std::make_unique<Receiver>("b", journal_);
  std::unique_ptr<Signal> signal_ = std::make_unique<Signal>();
};

TEST_F(SignalTest, CallsItsReceiversInTheOrderOfConnection) { EXPECT_EQ(Emit(), "a(x,1) b(x,1) "); }

TEST_F(SignalTest, IsEmittedByCallingItToo) {
  (*signal_)("y", 2);
  EXPECT_EQ(journal_, "a(y,2) b(y,2) ");
}

TEST_F(SignalTest, CallsTwiceWhatIsConnectedTwice) {
  signal_->connect(a_.get(), &Receiver::OnText);
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) a(x,1) ");
}

TEST_F(SignalTest, DisconnectsEveryConnectionOfAReceiver) {
  signal_->connect(a_.get(), &Receiver::OnText);
  signal_->disconnect(a_.get());
  EXPECT_EQ(Emit(), "b(x,1) ");
}

TEST_F(SignalTest, IgnoresTheDisconnectionOfAStranger) {
  Receiver stranger("stranger", journal_);
  signal_->disconnect(&stranger);
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) ");
}

TEST_F(SignalTest, DisconnectsAll) {
  signal_->disconnect_all();
  EXPECT_EQ(Emit(), "");
}

TEST_F(SignalTest, ForgetsAReceiverThatDies) {
  a_.reset();
  EXPECT_EQ(Emit(), "b(x,1) ");
}

TEST_F(SignalTest, ForgetsAReceiverThatDisconnectsItselfFromEverything) {
  a_->disconnect_all();
  EXPECT_EQ(Emit(), "b(x,1) ");
}

TEST_F(SignalTest, MayDieBeforeItsReceivers) {
  signal_.reset();
  a_.reset();
  b_->disconnect_all();
}

TEST_F(SignalTest, MayBeConnectedAgainAfterADisconnection) {
  signal_->disconnect(a_.get());
  signal_->connect(a_.get(), &Receiver::OnText);
  EXPECT_EQ(Emit(), "b(x,1) a(x,1) ");
}

TEST_F(SignalTest, LetsAReceiverDisconnectItselfDuringTheEmission) {
  a_->then = [this] { signal_->disconnect(a_.get()); };
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) ");
  EXPECT_EQ(Emit(), "b(x,1) ");
}

TEST_F(SignalTest, DoesNotCallAReceiverThatWasDisconnectedDuringTheEmission) {
  a_->then = [this] { signal_->disconnect(b_.get()); };
  EXPECT_EQ(Emit(), "a(x,1) ");
}

TEST_F(SignalTest, LetsAReceiverDieOfItsOwnCall) {
  a_->then = [this] { a_.reset(); };
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) ");
  EXPECT_EQ(Emit(), "b(x,1) ");
}

TEST_F(SignalTest, DoesNotCallAReceiverThatDiedDuringTheEmission) {
  a_->then = [this] { b_.reset(); };
  EXPECT_EQ(Emit(), "a(x,1) ");
}

TEST_F(SignalTest, CallsTheNextReceiverWhenTheOneBeforeHasDied) {
  b_->then = [this] { a_.reset(); };
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) ");
  EXPECT_EQ(Emit(), "b(x,1) ");
}

TEST_F(SignalTest, MayDieOfItsOwnEmission) {
  a_->then = [this] { signal_.reset(); };
  EXPECT_EQ(Emit(), "a(x,1) ");
}

TEST_F(SignalTest, MayDieTogetherWithAReceiverOfItsOwnEmission) {
  a_->then = [this] {
    signal_.reset();
    a_.reset();
  };
  EXPECT_EQ(Emit(), "a(x,1) ");
}

TEST_F(SignalTest, LetsAllBeDisconnectedDuringTheEmission) {
  a_->then = [this] { signal_->disconnect_all(); };
  EXPECT_EQ(Emit(), "a(x,1) ");
  EXPECT_EQ(Emit(), "");
}

TEST_F(SignalTest, CallsAReceiverConnectedDuringTheEmissionFromTheNextOneOn) {
  Receiver late("late", journal_);
  a_->then = [&] {
    signal_->connect(&late, &Receiver::OnText);
    a_->then = nullptr;
  };
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) ");
  EXPECT_EQ(Emit(), "a(x,1) b(x,1) late(x,1) ");
}

TEST_F(SignalTest, MayBeEmittedDuringItsEmission) {
  a_->then = [this] {
    a_->then = nullptr;
    signal_->emit("inner", 2);
  };
  EXPECT_EQ(Emit(), "a(x,1) a(inner,2) b(inner,2) b(x,1) ");
}

TEST_F(SignalTest, ForgetsInTheOuterEmissionWhatDiesInTheInnerOne) {
  a_->then = [this] {
    a_->then = [this] { b_.reset(); };
    signal_->emit("inner", 2);
  };
  EXPECT_EQ(Emit(), "a(x,1) a(inner,2) ");
}

TEST(TwoSignals, AreForgottenSeparately) {
  std::string journal;
  Signal first;
  Receiver receiver("r", journal);
  first.connect(&receiver, &Receiver::OnText);
  {
    Signal second;
    second.connect(&receiver, &Receiver::OnText);
    first.disconnect(&receiver);
    second("x", 1);
  }
  first("y", 2);
  EXPECT_EQ(journal, "r(x,1) ");
}

TEST(SignalWithFourArguments, HandsThemAllOver) {
  std::string journal;
  Receiver receiver("r", journal);
  sigslot::signal4<const std::string&, int, const std::string&, unsigned long long, single_threaded>
      signal;
  signal.connect(&receiver, &Receiver::OnFour);
  signal("ivs_result", -1, "1.0", 18446744073709551615ULL);
  EXPECT_EQ(journal, "ivs_result -1 1.0 18446744073709551615");
}

}  // namespace
