// Frame 33 of 36.
#version 3.7;

#declare Frame = 33;
#declare Frames = 36;
#declare Turn = 32 / 36;
#declare Heading = -8.999;
#declare Flame = 0.939;

#include "orrery.inc"
