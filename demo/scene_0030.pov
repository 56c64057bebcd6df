// Frame 30 of 36.
#version 3.7;

#declare Frame = 30;
#declare Frames = 36;
#declare Turn = 29 / 36;
#declare Heading = -13.156;
#declare Flame = 1.053;

#include "orrery.inc"
