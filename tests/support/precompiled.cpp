// A target needs a source; this one shows that the header stands alone.
#include "precompiled.h"
