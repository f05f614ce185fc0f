// Signals and slots: a signal calls member functions of the objects connected to
// it, and neither side has to outlive the other.
//
//   class Listener : public sigslot::has_slots<sigslot::single_threaded> {
//     void OnText(const std::string& text, int count);
//   };
//   sigslot::signal2<const std::string&, int, sigslot::single_threaded> signal;
//   signal.connect(&listener, &Listener::OnText);
//   signal("text", 1);
//
// While a signal is being emitted, a slot may disconnect or destroy any receiver,
// itself included, connect new ones, emit again, or destroy the signal. A receiver
// that is disconnected during an emission is not called any more; one that is
// connected during an emission is called from the next one on.
//
// Signals and receivers have addresses that others remember: neither is copyable.
#pragma once

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace sigslot {

/// Threading policy: signals and receivers are used from one thread only.
class single_threaded {
 public:
  void lock() {}
  void unlock() {}
};

template <class Policy>
class has_slots;

namespace internal {

/// Holds a policy's lock for a scope.
template <class Policy>
class lock_block {
 public:
  explicit lock_block(Policy* policy) : policy_(policy) { policy_->lock(); }
  ~lock_block() { policy_->unlock(); }
  lock_block(const lock_block&) = delete;
  lock_block& operator=(const lock_block&) = delete;

 private:
  Policy* policy_;
};

/// What a receiver knows of a signal that it is connected to.
template <class Policy>
class signal_base : public Policy {
 public:
  virtual ~signal_base() {}
  /// Forgets every slot of a receiver, without telling the receiver.
  virtual void forget(has_slots<Policy>* receiver) = 0;
};

}  // namespace internal

/// Base of every class whose member functions are connected to signals.
template <class Policy = single_threaded>
class has_slots : public Policy {
 public:
  has_slots() {}
  has_slots(const has_slots&) = delete;
  has_slots& operator=(const has_slots&) = delete;
  virtual ~has_slots() { disconnect_all(); }

  /// Disconnects this receiver from every signal.
  void disconnect_all() {
    internal::lock_block<Policy> lock(this);
    for (internal::signal_base<Policy>* sender : senders_) {
      sender->forget(this);
    }
    senders_.clear();
  }

  /// For signals only: notes a signal that calls this receiver.
  void signal_connect(internal::signal_base<Policy>* sender) {
    internal::lock_block<Policy> lock(this);
    senders_.insert(sender);
  }

  /// For signals only: the signal does not call this receiver any more.
  void signal_disconnect(internal::signal_base<Policy>* sender) {
    internal::lock_block<Policy> lock(this);
    senders_.erase(sender);
  }

 private:
  std::set<internal::signal_base<Policy>*> senders_;
};

namespace internal {

/// A connection to one member function. An emission shares it, so that it survives
/// a disconnection in the midst of it; `receiver` is null from then on.
template <class Policy, class... Args>
struct slot {
  explicit slot(has_slots<Policy>* connected) : receiver(connected) {}
  virtual ~slot() {}
  slot(const slot&) = delete;
  slot& operator=(const slot&) = delete;
  virtual void call(Args... args) = 0;

  has_slots<Policy>* receiver;
};

template <class Dest, class Policy, class... Args>
struct member_slot final : slot<Policy, Args...> {
  member_slot(Dest* dest_object, void (Dest::*dest_member)(Args...))
      : slot<Policy, Args...>(dest_object), dest(dest_object), member(dest_member) {}
  void call(Args... args) override { (dest->*member)(std::forward<Args>(args)...); }

  Dest* dest;
  void (Dest::*member)(Args...);
};

template <class Policy, class... Args>
class basic_signal : public signal_base<Policy> {
 public:
  basic_signal() {}
  basic_signal(const basic_signal&) = delete;
  basic_signal& operator=(const basic_signal&) = delete;
  ~basic_signal() override { disconnect_all(); }

  /// Calls `member` of `dest` on every emission. Connecting twice calls twice.
  template <class Dest>
  void connect(Dest* dest, void (Dest::*member)(Args...)) {
    lock_block<Policy> lock(this);
    slots_.push_back(std::make_shared<member_slot<Dest, Policy, Args...>>(dest, member));
    dest->signal_connect(this);
  }

  /// Ends every connection to a receiver; one that is not connected is ignored.
  void disconnect(has_slots<Policy>* receiver) {
    lock_block<Policy> lock(this);
    drop(receiver);
    receiver->signal_disconnect(this);
  }

  /// Ends every connection.
  void disconnect_all() {
    lock_block<Policy> lock(this);
    slot_list dropped;
    dropped.swap(slots_);
    for (const auto& connection : dropped) {
      if (connection->receiver != nullptr) {
        connection->receiver->signal_disconnect(this);
        connection->receiver = nullptr;
      }
    }
  }

  /// Calls every connected slot, in the order of connection.
  void emit(Args... args) {
    // The list is copied and this signal not looked at again: a slot may end it.
    const slot_list called = copy_of_slots();
    for (const auto& connection : called) {
      if (connection->receiver != nullptr) {
        connection->call(args...);
      }
    }
  }

  void operator()(Args... args) { emit(args...); }

  void forget(has_slots<Policy>* receiver) override {
    lock_block<Policy> lock(this);
    drop(receiver);
  }

 private:
  using slot_list = std::vector<std::shared_ptr<slot<Policy, Args...>>>;

  slot_list copy_of_slots() {
    lock_block<Policy> lock(this);
    return slots_;
  }

  void drop(has_slots<Policy>* receiver) {
    for (const auto& connection : slots_) {
      if (connection->receiver == receiver) {
        connection->receiver = nullptr;
      }
    }
    slots_.erase(
        std::remove_if(slots_.begin(), slots_.end(),
                       [](const auto& connection) { return connection->receiver == nullptr; }),
        slots_.end());
  }

  slot_list slots_;
};

}  // namespace internal

/// A signal with two arguments.
template <class A1, class A2, class Policy = single_threaded>
class signal2 : public internal::basic_signal<Policy, A1, A2> {};

/// A signal with four arguments.
template <class A1, class A2, class A3, class A4, class Policy = single_threaded>
class signal4 : public internal::basic_signal<Policy, A1, A2, A3, A4> {};

}  // namespace sigslot
