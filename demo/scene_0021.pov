// Frame 21 of 36.
#version 3.7;

#declare Frame = 21;
#declare Frames = 36;
#declare Turn = 20 / 36;
#declare Heading = -4.788;
#declare Flame = 0.945;

#include "orrery.inc"
