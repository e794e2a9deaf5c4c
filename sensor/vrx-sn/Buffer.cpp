#include "Buffer.h"
