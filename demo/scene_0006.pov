// Frame 6 of 36.
#version 3.7;

#declare Frame = 6;
#declare Frames = 36;
#declare Turn = 5 / 36;
#declare Heading = 10.725;
#declare Flame = 1.001;

#include "orrery.inc"
