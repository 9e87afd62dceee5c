// The environment, for libraries.
#pragma once

#include <unistd.h>

inline char*** _NSGetEnviron(void) { return &environ; }
