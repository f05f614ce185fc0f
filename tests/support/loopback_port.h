// TCP ports of the loopback interface, for servers that tests start.
#pragma once

/// A port that is free now; 0 when there is none. Somebody may take it before the
/// server does: then the server fails to start, and another port is to be tried.
int FreeLoopbackPort();

/// Whether something accepts connections there.
bool LoopbackPortServes(int port);
