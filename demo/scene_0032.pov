// Frame 32 of 36.
#version 3.7;

#declare Frame = 32;
#declare Frames = 36;
#declare Turn = 31 / 36;
#declare Heading = -10.725;
#declare Flame = 0.982;

#include "orrery.inc"
