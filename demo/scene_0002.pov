// Frame 2 of 36.
#version 3.7;

#declare Frame = 2;
#declare Frames = 36;
#declare Turn = 1 / 36;
#declare Heading = 2.431;
#declare Flame = 1.054;

#include "orrery.inc"
