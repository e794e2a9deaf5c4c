// What Prometheus reads.
#pragma once

#include "WebAnswer.h"
#include "WebHistory.h"
#include "WebState.h"

/// In a thread that may wait for the history; without one, what is known all the same.
ZTSWebAnswer answerMetrics(ZTCWebHistory& arHistory, ZTCWebHealth& arHealth);
