// What tells the release of a compiled library: `strings libmqttadapter.so | grep ^libmqttadapter`.

namespace qex {
namespace {

[[gnu::used]] const char kRelease[] = "libmqttadapter " MQTTADAPTER_VERSION;

}  // namespace
}  // namespace qex
