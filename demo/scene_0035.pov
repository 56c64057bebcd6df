// Frame 35 of 36.
#version 3.7;

#declare Frame = 35;
#declare Frames = 36;
#declare Turn = 34 / 36;
#declare Heading = -4.788;
#declare Flame = 0.936;

#include "orrery.inc"
