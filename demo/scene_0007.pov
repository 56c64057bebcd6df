// Frame 7 of 36.
#version 3.7;

#declare Frame = 7;
#declare Frames = 36;
#declare Turn = 6 / 36;
#declare Heading = 12.124;
#declare Flame = 0.999;

#include "orrery.inc"
