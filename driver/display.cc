#include "driver/display.h"
