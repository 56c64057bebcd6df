// Frame 4 of 36.
#version 3.7;

#declare Frame = 4;
#declare Frames = 36;
#declare Turn = 3 / 36;
#declare Heading = 7.000;
#declare Flame = 1.036;

#include "orrery.inc"
