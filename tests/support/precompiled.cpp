// A target needs a source; this one also checks that the header compiles by itself.
#include "precompiled.h"
