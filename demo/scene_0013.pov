// Frame 13 of 36.
#version 3.7;

#declare Frame = 13;
#declare Frames = 36;
#declare Turn = 12 / 36;
#declare Heading = 12.124;
#declare Flame = 0.973;

#include "orrery.inc"
