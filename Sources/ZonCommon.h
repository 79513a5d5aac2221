#pragma once

// Everything the library offers.
#include "platform/runtime/Object.h"
