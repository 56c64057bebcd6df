// Frame 17 of 36.
#version 3.7;

#declare Frame = 17;
#declare Frames = 36;
#declare Turn = 16 / 36;
#declare Heading = 4.788;
#declare Flame = 1.064;

#include "orrery.inc"
