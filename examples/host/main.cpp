// A small host: one plug-in, and an MQTT 5 broker. usage: example_host PLUGIN HOST PORT
#include <dlfcn.h>
#include <mosquitto.h>
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "host.h"
#include "platform/asio_event_service.h"

namespace {

constexpr int kReconnectPause_ms = 100;
constexpr char kRequests[] = "example/ask/";
constexpr char kMessages[] = "example/tell/";

/// One connection. The next one is another object: a client that connects again by itself would
/// send again what was not acknowledged.
class Connection {
 public:
  struct Events {
    Tasks* tasks;
    std::function<void()> on_up;
    std::function<void()> on_down;
    std::function<void(int message_id, int reason)> on_puback;
    std::function<void(const std::string& name, const std::string& payload)> on_request;
  };

  /// Returns at once; what happens is told as tasks.
  Connection(const std::string& host, int port, Events events)
      : client_(mosquitto_new(nullptr, true, this)), events_(std::move(events)) {
    mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_connect_callback_set(client_, [](mosquitto* client, void* self, int code) {
      if (code == 0) {
        mosquitto_subscribe(client, nullptr, (std::string(kRequests) + "#").c_str(), 1);
        Of(self).events_.tasks->Post(Of(self).events_.on_up);
      }
    });
    mosquitto_publish_v5_callback_set(
        client_, [](mosquitto*, void* self, int id, int reason, const mosquitto_property*) {
          Of(self).events_.tasks->Post(
              [on_puback = Of(self).events_.on_puback, id, reason] { on_puback(id, reason); });
        });
    mosquitto_message_callback_set(
        client_, [](mosquitto*, void* self, const mosquitto_message* message) {
          const std::string name = std::string(message->topic).substr(sizeof(kRequests) - 1);
          const std::string payload(static_cast<const char*>(message->payload),
                                    static_cast<std::size_t>(message->payloadlen));
          Of(self).events_.tasks->Post([on_request = Of(self).events_.on_request, name, payload] {
            on_request(name, payload);
          });
        });
    thread_ = std::thread([this, host, port] {
      if (mosquitto_connect(client_, host.c_str(), port, 60) == MOSQ_ERR_SUCCESS) {
        while (!is_over_ && mosquitto_loop(client_, 100, 1) == MOSQ_ERR_SUCCESS) {
        }
      }
      events_.tasks->Post(events_.on_down);
    });
  }
  ~Connection() {
    is_over_ = true;
    mosquitto_disconnect(client_);
    thread_.join();
    mosquitto_destroy(client_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// @return 0 where it cannot be sent.
  int Publish(const std::string& topic, const std::string& text) {
    int id = 0;
    const int result = mosquitto_publish(client_, &id, topic.c_str(), static_cast<int>(text.size()),
                                         text.data(), 1, false);
    return result == MOSQ_ERR_SUCCESS ? id : 0;
  }

 private:
  static Connection& Of(void* self) { return *static_cast<Connection*>(self); }

  mosquitto* client_;
  const Events events_;
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

/// Connects again and again, and has the host know.
class Link final : public Broker {
 public:
  Link(Tasks* tasks, const std::string& host, int port) : tasks_(tasks), host_(host), port_(port) {}

  void Start(Host* host) {
    listener_ = host;
    Connect();
  }

  std::uint64_t Publish(const std::string& name, const std::string& text) override {
    const int id = is_up_ ? connection_->Publish(kMessages + name, text) : 0;
    return id == 0 ? 0 : NumberOf(connections_, id);
  }

 private:
  // Message ids begin anew on each connection.
  static std::uint64_t NumberOf(std::uint64_t connection, int id) {
    return (connection << 16U) + static_cast<std::uint64_t>(id);
  }

  void Connect() {
    const std::uint64_t number = ++connections_;
    Connection::Events events;
    events.tasks = tasks_;
    events.on_up = [this, number] {
      if (number == connections_) {
        is_up_ = true;
        listener_->OnLinkUp();
      }
    };
    events.on_down = [this, number] {
      if (number == connections_) {
        OnDown();
      }
    };
    events.on_puback = [this, number](int id, int reason) {
      listener_->OnPuback(NumberOf(number, id), reason);
    };
    events.on_request = [this](const std::string& name, const std::string& text) {
      Json::Value payload;
      Json::Value response;
      if (Json::String2Json(text, payload)) {
        listener_->OnRequest(name, payload, "1.0", response);
      }
    };
    connection_ = std::make_unique<Connection>(host_, port_, events);
  }

  void OnDown() {
    if (is_up_) {
      is_up_ = false;
      listener_->OnLinkDown();
    }
    tasks_->PostDelayed(kReconnectPause_ms, [this] {
      connection_.reset();
      Connect();
    });
  }

  Tasks* const tasks_;
  const std::string host_;
  const int port_;
  Host* listener_ = nullptr;
  std::unique_ptr<Connection> connection_;
  std::uint64_t connections_ = 0;
  bool is_up_ = false;
};

int Run(const char* plugin, const char* broker, int port) {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  void* const library = dlopen(plugin, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "example_host: %s\n", dlerror());
    return 1;
  }
  const auto create = reinterpret_cast<decltype(&create_adapter)>(dlsym(library, "create_adapter"));
  const auto destroy =
      reinterpret_cast<decltype(&destory_adapter)>(dlsym(library, "destory_adapter"));
  // Your platform's event service; this thread is its thread.
  const auto events = boost::make_shared<tarvex::AsioEventService>();
  BaseAdapter* const adapter = create(events, 0);
  if (adapter == nullptr) {
    return 1;
  }
  {
    Tasks tasks(events);
    Link link(&tasks, broker, port);
    Host host(&tasks, adapter, &link);
    link.Start(&host);
    std::thread stopping([&] {
      int signal = 0;
      sigwait(&stops, &signal);
      events->Stop();
    });
    events->Run();
    stopping.join();
  }
  destroy(adapter);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  char* end = nullptr;
  const long port = argc == 4 ? std::strtol(argv[3], &end, 10) : 0;
  if (port <= 0 || port > 65535 || *end != '\0') {
    std::fprintf(stderr, "usage: example_host PLUGIN HOST PORT\n");
    return 1;
  }
  mosquitto_lib_init();
  const int status = Run(argv[1], argv[2], static_cast<int>(port));
  mosquitto_lib_cleanup();
  return status;
}
