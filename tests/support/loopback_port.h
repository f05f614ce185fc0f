// TCP ports of the loopback interface, for servers that tests start.
#pragma once

#include <netinet/in.h>

/// A port of 127.0.0.1.
sockaddr_in LoopbackAddress(int port);

/// A port that is free now; 0 when there is none. It is none that the system gives to
/// outgoing connections, so that it stays free while its server is down, and none that another
/// test gets before this program ends. Another program may take it before the server does: then
/// the server fails to start, and another port is to be tried.
int FreeLoopbackPort();

/// Whether something accepts connections there.
bool LoopbackPortServes(int port);
