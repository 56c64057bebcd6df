// Frame 16 of 36.
#version 3.7;

#declare Frame = 16;
#declare Frames = 36;
#declare Turn = 15 / 36;
#declare Heading = 7.000;
#declare Flame = 1.080;

#include "orrery.inc"
