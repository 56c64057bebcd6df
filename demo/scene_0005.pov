// Frame 5 of 36.
#version 3.7;

#declare Frame = 5;
#declare Frames = 36;
#declare Turn = 4 / 36;
#declare Heading = 8.999;
#declare Flame = 1.014;

#include "orrery.inc"
