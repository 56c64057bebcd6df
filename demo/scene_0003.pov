// Frame 3 of 36.
#version 3.7;

#declare Frame = 3;
#declare Frames = 36;
#declare Turn = 2 / 36;
#declare Heading = 4.788;
#declare Flame = 1.055;

#include "orrery.inc"
