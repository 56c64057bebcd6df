// Frame 15 of 36.
#version 3.7;

#declare Frame = 15;
#declare Frames = 36;
#declare Turn = 14 / 36;
#declare Heading = 8.999;
#declare Flame = 1.061;

#include "orrery.inc"
