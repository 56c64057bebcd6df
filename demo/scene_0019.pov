// Frame 19 of 36.
#version 3.7;

#declare Frame = 19;
#declare Frames = 36;
#declare Turn = 18 / 36;
#declare Heading = 0.000;
#declare Flame = 0.975;

#include "orrery.inc"
