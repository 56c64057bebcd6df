// Frame 18 of 36.
#version 3.7;

#declare Frame = 18;
#declare Frames = 36;
#declare Turn = 17 / 36;
#declare Heading = 2.431;
#declare Flame = 1.021;

#include "orrery.inc"
