// Frame 29 of 36.
#version 3.7;

#declare Frame = 29;
#declare Frames = 36;
#declare Turn = 28 / 36;
#declare Heading = -13.787;
#declare Flame = 1.052;

#include "orrery.inc"
