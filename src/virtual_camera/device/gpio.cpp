#include "virtual_camera/device/gpio.h"

#include <algorithm>
#include <string>

#include "json_text.h"
#include "platform/log.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

void CheckLevel(int level) {
  if (level != 0 && level != 1) {
    throw RequestError("a level is 0 or 1, not " + std::to_string(level));
  }
}

}  // namespace

Gpio::Gpio(Timeline& timeline, Announcer& announcer) : timeline_(timeline), announcer_(announcer) {}

size_t Gpio::CheckedOutput(int output) const {
  if (output < 0 || output >= kOutputs) {
    throw RequestError("there is no output " + std::to_string(output));
  }
  return static_cast<size_t>(output);
}

void Gpio::Hold(int output, int level) {
  Out& out = outputs_[CheckedOutput(output)];
  CheckLevel(level);
  ++out.generation;
  out.level = level;
  SYS_LOG(kLogInfo, "output %d is %d", output, level);
}

void Gpio::Pulse(int output, int64_t length_ms) {
  const size_t index = CheckedOutput(output);
  Out& out = outputs_[index];
  const uint64_t generation = ++out.generation;
  out.level = 1;
  ++out.pulses;
  SYS_LOG(kLogInfo, "output %d pulses for %lld ms", output,
          static_cast<long long>(std::max<int64_t>(length_ms, 1)));
  timeline_.After(std::max<int64_t>(length_ms, 1), [this, index, generation] {
    if (outputs_[index].generation == generation) {
      outputs_[index].level = 0;
    }
  });
}

int Gpio::Output(int output) const { return outputs_[CheckedOutput(output)].level; }

void Gpio::SetInput(int input, int level) {
  if (input < 0 || input >= kInputs) {
    throw RequestError("there is no input " + std::to_string(input));
  }
  CheckLevel(level);
  inputs_[static_cast<size_t>(input)] = level;
  Json::Value event;
  event["body"]["flag"] = level;
  event["body"]["source"] = input;
  std::string text;
  Json::Json2String(event, text);
  announcer_.Announce("EVT_SRV_EXTERNAL_TRIGGER", text);
}

void Gpio::ResetOutputs() {
  for (Out& out : outputs_) {
    ++out.generation;
    out.level = 0;
  }
}

Json::Value Gpio::State() const {
  Json::Value state;
  for (const Out& out : outputs_) {
    state["outputs"].append(out.level);
    state["pulses"].append(static_cast<Json::Int64>(out.pulses));
  }
  for (const int level : inputs_) {
    state["inputs"].append(level);
  }
  return state;
}

}  // namespace virtual_camera
