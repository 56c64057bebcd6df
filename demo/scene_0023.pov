// Frame 23 of 36.
#version 3.7;

#declare Frame = 23;
#declare Frames = 36;
#declare Turn = 22 / 36;
#declare Heading = -8.999;
#declare Flame = 0.986;

#include "orrery.inc"
