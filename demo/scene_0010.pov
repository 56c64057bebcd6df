// Frame 10 of 36.
#version 3.7;

#declare Frame = 10;
#declare Frames = 36;
#declare Turn = 9 / 36;
#declare Heading = 14.000;
#declare Flame = 0.966;

#include "orrery.inc"
