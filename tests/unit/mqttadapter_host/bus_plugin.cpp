// A plug-in, as far as it makes a bus client.
#include "tarvex/dp_client.h"

extern "C" __attribute__((visibility("default"))) void make_client(
    int port, boost::shared_ptr<tarvex::DpClient>* client) {
  *client = tarvex::DpClient::CreateDpClient(nullptr, tarvex::SocketAddress("127.0.0.1", port),
                                             "adapter");
}
