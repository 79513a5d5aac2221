#include "logger/Logger.h"
