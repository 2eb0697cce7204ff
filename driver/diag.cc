#include "driver/diag.h"
