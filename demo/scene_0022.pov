// Frame 22 of 36.
#version 3.7;

#declare Frame = 22;
#declare Frames = 36;
#declare Turn = 21 / 36;
#declare Heading = -7.000;
#declare Flame = 0.964;

#include "orrery.inc"
