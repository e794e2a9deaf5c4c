// What is sent back, as libmicrohttpd takes it.
#pragma once

#include <microhttpd.h>

#include "WebConnections.h"

class ZTCWebServer;

/// Has the connection's answer sent, or the stream that it follows from here on, with what every answer has
/// beside it. While it is taken the server is told so. What stands in the connection's request stays there
/// until it is over. MHD_NO: there is no memory, the connection goes.
MHD_Result sendReply(ZTCWebServer& arServer, ZTSWebConnection& arConnection);

/// What begins a stream: its type, and its first piece. Throws std::bad_alloc.
void beginStream(ZTSWebConnection::Request& arRequest, const std::string& acrLastEventId);
/// Has somebody who follows told that there is nothing new.
void keepAlive(ZTSWebFollower& arFollower);
