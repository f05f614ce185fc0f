// What tells the release of a compiled library: `strings libmqttadapter.so | grep ^libmqttadapter`.

// Nothing refers to it; the linker is told to keep it.
extern "C" {
extern const char mqttadapter_release[];
const char mqttadapter_release[] = "libmqttadapter " MQTTADAPTER_VERSION;
}
