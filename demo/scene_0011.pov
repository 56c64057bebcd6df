// Frame 11 of 36.
#version 3.7;

#declare Frame = 11;
#declare Frames = 36;
#declare Turn = 10 / 36;
#declare Heading = 13.787;
#declare Flame = 0.948;

#include "orrery.inc"
