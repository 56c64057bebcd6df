// Frame 1 of 36.
#version 3.7;

#declare Frame = 1;
#declare Frames = 36;
#declare Turn = 0 / 36;
#declare Heading = 0.000;
#declare Flame = 1.025;

#include "orrery.inc"
