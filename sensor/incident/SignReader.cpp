#include "SignReader.h"
