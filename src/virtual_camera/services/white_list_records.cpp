// Queue "BUS_WHITE_LIST_INFO": the white list.
//
// delete_white_list    body.plates: texts; {"body":{"deleted":n}}
// replace_white_list   body.white_list_rec: objects with "plate" as their key;
//                      {"body":{"stored":n,"refused":m}}, an error if none was stored
// select_white_list    body.plate; {"body":{"white_list_rec":[none or one record]}}
// set_wl_check_status  body.filter_enable: 0 off; 1 a listed plate opens the gate (a pulse of
//                      output 0); 2 besides, an unlisted one closes it.
//                      {"body":{"filter_enable":n}}
// get_wl_check_status  {"body":{"filter_enable":n}}
#include "virtual_camera/device/device.h"
#include "virtual_camera/device/request_error.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

class WhiteListRecords : public JsonService {
 public:
  explicit WhiteListRecords(Device& device) : device_(device) {}

 protected:
  std::string Handle(const std::string& type, const Json::Value& request) override {
    const Json::Value& body = request["body"];
    if (type == "delete_white_list") {
      return Delete(RequiredArray(body, "plates"));
    }
    if (type == "replace_white_list") {
      return Replace(RequiredArray(body, "white_list_rec"));
    }
    if (type == "select_white_list") {
      Json::Value found;
      found["white_list_rec"] = device_.white_list.Select(RequiredText(body, "plate"));
      return Accepted(found);
    }
    if (type == "set_wl_check_status") {
      return SetCheck(RequiredInt(body, "filter_enable"));
    }
    if (type == "get_wl_check_status") {
      return CheckStatus();
    }
    RefuseType(type);
  }

 private:
  static const Json::Value& RequiredArray(const Json::Value& body, const char* key) {
    if (!body.isObject() || !body[key].isArray()) {
      throw RequestError(std::string("\"") + key + "\" is not an array");
    }
    return body[key];
  }

  std::string Delete(const Json::Value& plates) {
    std::vector<std::string> texts;
    for (const Json::Value& plate : plates) {
      if (plate.isString()) {
        texts.push_back(plate.asString());
      }
    }
    Json::Value answer;
    answer["deleted"] = device_.white_list.Delete(texts);
    return Accepted(answer);
  }

  std::string Replace(const Json::Value& records) {
    const WhiteList::Replaced replaced = device_.white_list.Replace(records);
    if (replaced.stored == 0 && replaced.refused > 0) {
      throw RequestError("no record has a usable \"plate\"");
    }
    Json::Value answer;
    answer["stored"] = replaced.stored;
    answer["refused"] = replaced.refused;
    return Accepted(answer);
  }

  std::string SetCheck(int check) {
    if (check < 0 || check > 2) {
      throw RequestError("\"filter_enable\" is 0, 1 or 2");
    }
    device_.white_list.SetCheck(static_cast<WhiteList::Check>(check));
    return CheckStatus();
  }

  std::string CheckStatus() const {
    Json::Value answer;
    answer["filter_enable"] = static_cast<int>(device_.white_list.check());
    return Accepted(answer);
  }

  Device& device_;
};

}  // namespace

std::unique_ptr<Service> CreateWhiteListRecords(Device& device) {
  return std::make_unique<WhiteListRecords>(device);
}

}  // namespace virtual_camera
