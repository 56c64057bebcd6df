// Frame 8 of 36.
#version 3.7;

#declare Frame = 8;
#declare Frames = 36;
#declare Turn = 7 / 36;
#declare Heading = 13.156;
#declare Flame = 0.997;

#include "orrery.inc"
