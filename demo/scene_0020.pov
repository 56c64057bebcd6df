// Frame 20 of 36.
#version 3.7;

#declare Frame = 20;
#declare Frames = 36;
#declare Turn = 19 / 36;
#declare Heading = -2.431;
#declare Flame = 0.946;

#include "orrery.inc"
