#include "../outside.fxh"
