#include "self.fxh"
//// self.fxh
#include "self.fxh"
