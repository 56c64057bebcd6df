// Frame 24 of 36.
#version 3.7;

#declare Frame = 24;
#declare Frames = 36;
#declare Turn = 23 / 36;
#declare Heading = -10.725;
#declare Flame = 0.999;

#include "orrery.inc"
