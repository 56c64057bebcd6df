// Frame 9 of 36.
#version 3.7;

#declare Frame = 9;
#declare Frames = 36;
#declare Turn = 8 / 36;
#declare Heading = 13.787;
#declare Flame = 0.986;

#include "orrery.inc"
