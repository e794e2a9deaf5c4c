// From the books to the store.
#pragma once

#include "LossBook.h"

class ZTCSnBuffer;

/// The losses go with the last run, which tells that they are told.
void storeNews(ZTSBookNews aNews, ZTCSnBuffer& arBuffer);
