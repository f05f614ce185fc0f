// What goes between libhostcheck.so, within the host, and the program `hostcheck`: lines of JSON
// over TCP. The plug-in tells what happens to it ("event"), the program what it is to do ("do").
#pragma once

namespace hostcheck {

/// Environment variable with the address of the program, "HOST:PORT".
constexpr char kAddressVariable[] = "HOSTCHECK_ADDRESS";

/// A service queue whose requests nobody answers.
constexpr char kSilentQueue[] = "HOSTCHECK_SILENT";

/// The bus topic of recognition results, and what the check needs of a record on it.
constexpr char kResultTopic[] = "BUS_SRV_IVS_RESULT";
constexpr unsigned kRecordSize = 552;
constexpr unsigned kPlateIdOffset = 80;

/// Member of every published payload: which publication it is. The program looks for its value in
/// whatever the host makes of the payload.
constexpr char kMarkMember[] = "hostcheck";
constexpr char kMarkBegin[] = "hostcheck-";
constexpr char kMarkEnd[] = ".";
constexpr char kMarkPattern[] = R"(hostcheck-\d+\.)";

/// Requests and messages that the plug-in announces.
constexpr const char* kRequests[] = {"check_offline_record", "get_sn"};
constexpr const char* kPublishes[] = {"get_sn", "gpio_in", "ivs_result", "offline_record"};

// Tags of publications.
constexpr unsigned long long kLiveTag = 11;
constexpr unsigned long long kInputTag = 13;
constexpr unsigned long long kRedeliveredTag = 16;
constexpr unsigned long long kCountTag = 17;

}  // namespace hostcheck
