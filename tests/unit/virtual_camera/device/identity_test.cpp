#include "desk_camera.h"
#include "virtual_camera/device/request_error.h"

namespace virtual_camera {
namespace {

class IdentityOfACamera : public DeskCamera {
 protected:
  // What the databases are begun with: "database/key=value", a "*" where it is newer.
  std::vector<std::string> Begun() {
    std::vector<std::string> lines_begun;
    for (const KeyValue& value : key_values.begun) {
      lines_begun.push_back(value.database + "/" + value.key + "=" + value.value +
                            (value.is_newer ? " *" : ""));
    }
    return lines_begun;
  }

  bool Rename(const std::string& name) {
    bool written = false;
    device->identity.Rename(name, [&written](bool in_database) { written = in_database; });
    return written;
  }
};

using Lines = std::vector<std::string>;

TEST_F(IdentityOfACamera, FillsTheDatabasesAtTheFirstStart) {
  EXPECT_EQ(
      Begun(),
      (Lines{"skvdb/dev_name=VmlydHVhbCBjYW1lcmE=", R"(skvdb/net_rj45={"ip":"192.168.1.100"})",
             "usr_data_kvdb/bus_cipher_data=virtual-camera"}));
}

TEST_F(IdentityOfACamera, KeepsAndAnnouncesAName) {
  EXPECT_TRUE(Rename("Gate 7"));
  EXPECT_EQ(key_values.written["dev_name"], "R2F0ZSA3");
  EXPECT_EQ(Heard(), Lines{R"(SS_DEV_NAME_CHANGED {"title":"R2F0ZSA3"})"});
  EXPECT_EQ(device->State()["name"], "Gate 7");
}

TEST_F(IdentityOfACamera, KeepsAndAnnouncesAnAddress) {
  device->identity.Readdress("10.1.2.3", [](bool) {});
  EXPECT_EQ(key_values.written["net_rj45"], R"({"ip":"10.1.2.3"})");
  EXPECT_EQ(Heard(), Lines{R"(SYS_SRV_IP_CHANGED {"ip":"10.1.2.3"})"});
}

TEST_F(IdentityOfACamera, HasItsNameAgainAfterARestartWhateverTheDefault) {
  Rename("Gate 7");
  options.identity.name = "Other default";
  Restart();
  EXPECT_EQ(device->identity.Name(), "Gate 7");
  EXPECT_EQ(Begun()[0], "skvdb/dev_name=R2F0ZSA3");
}

TEST_F(IdentityOfACamera, InsistsOnANameThatTheDatabaseHasNotYetSeen) {
  key_values.is_away = true;
  EXPECT_FALSE(Rename("Gate 7"));
  EXPECT_EQ(Heard(), Lines{R"(SS_DEV_NAME_CHANGED {"title":"R2F0ZSA3"})"});
  Restart();
  EXPECT_EQ(Begun()[0], "skvdb/dev_name=R2F0ZSA3 *");
}

TEST_F(IdentityOfACamera, TakesOverWhatTheDatabaseHolds) {
  key_values.adopt("dev_name", "R2F0ZSA4");
  key_values.adopt("net_rj45", R"({"ip":"10.9.9.9"})");
  EXPECT_EQ(device->identity.Name(), "Gate 8");
  EXPECT_EQ(device->identity.ip(), "10.9.9.9");
  Restart();
  EXPECT_EQ(device->identity.Name(), "Gate 8");
  EXPECT_EQ(device->identity.ip(), "10.9.9.9");
}

TEST_F(IdentityOfACamera, KeepsItsAddressWhenTheDatabaseHoldsNonsense) {
  key_values.adopt("net_rj45", "nonsense");
  EXPECT_EQ(device->identity.ip(), "192.168.1.100");
}

TEST_F(IdentityOfACamera, RefusesEmptyAndOverlongNamesAndWhatIsNoAddress) {
  EXPECT_THROW(Rename(""), RequestError);
  EXPECT_THROW(Rename(std::string(65, 'x')), RequestError);
  EXPECT_THROW(device->identity.Readdress("gate.example", [](bool) {}), RequestError);
  EXPECT_TRUE(Heard().empty());
}

TEST_F(IdentityOfACamera, AnswersAlsoWhenItCannotNoteThatTheDatabaseHasItsName) {
  device->database.Execute(
      "CREATE TEMP TRIGGER failing BEFORE INSERT ON settings WHEN new.value = '0' "
      "BEGIN SELECT RAISE(ABORT, 'no room'); END");
  EXPECT_TRUE(Rename("Gate 7"));
  EXPECT_EQ(Heard(), Lines{R"(SS_DEV_NAME_CHANGED {"title":"R2F0ZSA3"})"});
}

}  // namespace
}  // namespace virtual_camera
