// Frame 34 of 36.
#version 3.7;

#declare Frame = 34;
#declare Frames = 36;
#declare Turn = 33 / 36;
#declare Heading = -7.000;
#declare Flame = 0.920;

#include "orrery.inc"
