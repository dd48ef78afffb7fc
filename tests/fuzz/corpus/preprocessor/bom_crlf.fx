float a;
#define B \
 1
#pragma once
#pragma other
#line 7 "x"
# 
B /* c */ // d \
still
