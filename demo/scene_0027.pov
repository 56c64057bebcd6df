// Frame 27 of 36.
#version 3.7;

#declare Frame = 27;
#declare Frames = 36;
#declare Turn = 26 / 36;
#declare Heading = -13.787;
#declare Flame = 1.014;

#include "orrery.inc"
