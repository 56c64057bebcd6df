// Frame 36 of 36.
#version 3.7;

#declare Frame = 36;
#declare Frames = 36;
#declare Turn = 35 / 36;
#declare Heading = -2.431;
#declare Flame = 0.979;

#include "orrery.inc"
