#pragma once

#include "Platform.h"

// Looks at the session once and returns the backends that serve it.
Platform makePlatform();
