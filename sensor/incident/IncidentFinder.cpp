#include "IncidentFinder.h"
