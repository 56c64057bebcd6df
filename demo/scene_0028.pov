// Frame 28 of 36.
#version 3.7;

#declare Frame = 28;
#declare Frames = 36;
#declare Turn = 27 / 36;
#declare Heading = -14.000;
#declare Flame = 1.034;

#include "orrery.inc"
