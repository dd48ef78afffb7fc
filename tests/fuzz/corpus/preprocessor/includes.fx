#include "a.fxh"
#include "a.fxh"
#include <b.fxh>
#include NAME
//// a.fxh
#pragma once
#define NAME "b.fxh"
float a;
//// b.fxh
#ifndef B
#define B
#include "effect.fx"
float b; // end
#endif
