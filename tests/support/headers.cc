#include "tests/support/headers.h"
