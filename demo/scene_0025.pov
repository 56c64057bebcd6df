// Frame 25 of 36.
#version 3.7;

#declare Frame = 25;
#declare Frames = 36;
#declare Turn = 24 / 36;
#declare Heading = -12.124;
#declare Flame = 1.001;

#include "orrery.inc"
