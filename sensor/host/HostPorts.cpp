#include "HostPorts.h"
