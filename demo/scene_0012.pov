// Frame 12 of 36.
#version 3.7;

#declare Frame = 12;
#declare Frames = 36;
#declare Turn = 11 / 36;
#declare Heading = 13.156;
#declare Flame = 0.947;

#include "orrery.inc"
