// Frame 31 of 36.
#version 3.7;

#declare Frame = 31;
#declare Frames = 36;
#declare Turn = 30 / 36;
#declare Heading = -12.124;
#declare Flame = 1.027;

#include "orrery.inc"
