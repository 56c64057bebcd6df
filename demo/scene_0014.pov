// Frame 14 of 36.
#version 3.7;

#declare Frame = 14;
#declare Frames = 36;
#declare Turn = 13 / 36;
#declare Heading = 10.725;
#declare Flame = 1.018;

#include "orrery.inc"
