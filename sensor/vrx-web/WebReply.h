// What is sent back, as libmicrohttpd takes it.
#pragma once

#include <microhttpd.h>

#include "WebConnections.h"

/// Has the connection's answer sent, or the stream that it follows from here on, with what every answer has
/// beside it. While it is taken the connection's time is renewed. What stands in its request stays there
/// until it is over. MHD_NO: there is no memory, the connection goes.
MHD_Result sendReply(ZTSWebConnection& arConnection);

/// What begins a stream: its type. Throws std::bad_alloc.
ZTSWebAnswer answerStream();
/// That there is nothing new.
const ZTWebPiece& keepAlivePiece();
