#include "IncidentStory.h"
